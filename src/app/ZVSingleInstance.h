#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

/// Keeps one running Norvo per data folder, so that no two processes write
/// the same database and preferences. The first start holds an exclusive
/// lock on a file beside the data for as long as it runs and listens on a
/// local socket in the runtime directory; a later start finds the lock
/// taken, asks the running one through the socket to bring its window to
/// the front (or hands it the address it was started with), and quits. The
/// lock dies with its process, so a crash leaves nothing stale.
class ZVSingleInstance : public QObject {
    Q_OBJECT
public:
    /// The socket lives in `runtimeDirectory` ($XDG_RUNTIME_DIR, or a
    /// private folder below the temporary directory); the lock in
    /// `lockDirectory`, the data folder, or beside the socket without one.
    explicit ZVSingleInstance(QString runtimeDirectory = defaultRuntimeDirectory(), QString lockDirectory = {},
                              QObject* parent = nullptr);
    ~ZVSingleInstance() override;
    ZVSingleInstance(const ZVSingleInstance&) = delete;
    ZVSingleInstance& operator=(const ZVSingleInstance&) = delete;

    /// Takes the lock and starts listening; false when another process
    /// holds the lock. A lock file that cannot be made at all leaves this
    /// instance running unguarded, with a log line.
    bool becomePrimaryInstance();
    bool isPrimaryInstance() const { return _isPrimary; }

    /// Asks the running instance to come to the front; false when it could
    /// not be reached within the timeout.
    bool activateRunningInstance(int timeoutMilliseconds = 3000) const;
    /// Hands the running instance an address that the desktop opened with
    /// this program (the answer of a login on a custom scheme); false when
    /// it could not be reached within the timeout.
    bool openURLInRunningInstance(const QString& url, int timeoutMilliseconds = 3000) const;

    QString lockFilePath() const;
    QString socketPath() const;

    static QString defaultRuntimeDirectory();

Q_SIGNALS:
    /// A later start asked this one to bring its window to the front.
    void activationRequested();
    /// A later start handed this one an address to open.
    void URLReceived(const QString& url);

private:
    void _readRequest();
    bool _send(const QByteArray& request, int timeoutMilliseconds) const;

    QString _runtimeDirectory;
    QString _lockDirectory;
    int _lockDescriptor = -1;
    bool _isPrimary = false;
    QLocalServer* _server = nullptr;
};
