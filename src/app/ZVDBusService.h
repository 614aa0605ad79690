#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "core/notifications/ZVNotificationCenter.h"

class ZVIntegrationProject;
class ZVNorvoAppDelegate;

/// The running program on the session bus, for scripts, key bindings and
/// status bars: "com.tesselwick.Norvo" at "/com/tesselwick/Norvo". Each
/// method runs the command that the menu, the hot key or the window runs,
/// with the same alerts and log entries, and answers with the state
/// afterwards as JSON. A command that puts a question to the user answers
/// its caller when the question comes up, with the error
/// "com.tesselwick.Norvo.Error.WaitingForUser", so that no script waits for
/// a person. StateChanged follows starts, stops, changes of project, task
/// text and time, and synchronizations, and while the timer runs, each new
/// minute of the clock; never each tick. A command's own change is
/// announced before its reply. While the projects are read at start-up a
/// command waits for them, at most 20 seconds, and is then answered with
/// "com.tesselwick.Norvo.Error.Loading"; Status and Quit never wait.
class ZVDBusService final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.tesselwick.Norvo")
public:
    explicit ZVDBusService(ZVNorvoAppDelegate& delegate, QObject* parent = nullptr);
    ~ZVDBusService() override;

    /// Publishes the object and takes the name; false, with a log line, when
    /// the bus is missing or another process owns the name.
    bool registerOn(QDBusConnection connection);

    /// The state as a JSON object: running, clock, seconds, task, project
    /// (path), name, projectIdentifiers, accountIdentifier, syncing.
    QJsonObject state() const;
    /// What a search result or the state names a project by.
    static QJsonObject projectIdentity(const ZVIntegrationProject& project);
    /// The project at a path (any spelling of the separator, any case) or
    /// with the identifiers of projectIdentity() as JSON; none when unknown.
    static std::shared_ptr<ZVIntegrationProject> projectNamed(const QString& pathOrIdentifiers);

    /// The error of the last method that failed when called in-process.
    const QString& lastError() const { return _lastError; }
    /// Whether the once-a-minute update is armed (only while the timer runs).
    bool isMinuteUpdateArmed() const { return _minuteTimer.isActive(); }
    /// Milliseconds until the armed minute update.
    int minuteUpdateInterval() const { return _minuteTimer.interval(); }

    static constexpr const char* serviceName = "com.tesselwick.Norvo";
    static constexpr const char* objectPath = "/com/tesselwick/Norvo";
    /// How long a call waits for the projects to be read; below the time
    /// that norvoctl waits for an answer.
    static constexpr int loadingWaitMilliseconds = 20000;

public Q_SLOTS:
    Q_SCRIPTABLE QString Start();
    Q_SCRIPTABLE QString Stop();
    Q_SCRIPTABLE QString Toggle();
    Q_SCRIPTABLE QString Status();
    Q_SCRIPTABLE QString Search(const QString& query);
    Q_SCRIPTABLE QString SetCurrentProject(const QString& pathOrIdentifiers);
    Q_SCRIPTABLE QString SetTaskText(const QString& text);
    Q_SCRIPTABLE QString Synchronize();
    Q_SCRIPTABLE QString PostCurrent();
    Q_SCRIPTABLE QString ExportCSV(const QString& from, const QString& to, const QString& file);
    /// The menu's "Quit Norvo": a running timer stops and everything is saved.
    Q_SCRIPTABLE QString Quit();

Q_SIGNALS:
    Q_SCRIPTABLE void StateChanged(const QString& json);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Failure {
        const char* errorName;
        QString message;
    };
    struct PendingReply {
        QDBusMessage call;
        QDBusConnection connection;
        bool answered = false;
    };

    enum class Waiting { forProjects, no };
    /// Runs a command, which may name a failure, and answers with the state
    /// or the failure. From the bus, the reply goes out when the command has
    /// run, or earlier when it opens a window that waits for the user. A
    /// command that needs the projects waits while they are read.
    QString _run(std::function<std::optional<Failure>()> command, Waiting waiting = Waiting::forProjects);
    void _runAndReply(const std::shared_ptr<PendingReply>& pending,
                      const std::function<std::optional<Failure>()>& command);
    /// From the bus while the projects are read: the call waits for them
    /// and `answer` replies once they are there, or the call is answered
    /// with the loading error after loadingWaitMilliseconds. False when
    /// nothing needs to wait.
    bool _deferUntilLoaded(std::function<void(const std::shared_ptr<PendingReply>&)> answer);
    void _scheduleStateChange();
    void _publishState(bool everyMinute);
    void _armMinuteUpdate();

    ZVNorvoAppDelegate& _delegate;
    std::vector<std::shared_ptr<PendingReply>> _pendingReplies;
    QTimer _minuteTimer;
    bool _stateChangeScheduled = false;
    QJsonObject _lastPublishedState;
    QString _lastError;
    std::vector<ZVNotificationCenter::Token> _observations;
};
