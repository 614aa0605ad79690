#include "app/ZVSingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include "ZVLog.h"

namespace {

// The requests, one line each: "activate", or "open " and an address.
const QByteArray activationRequest = QByteArrayLiteral("activate\n");
const QByteArray openPrefix = QByteArrayLiteral("open ");
// An address of a login's answer is far shorter; a longer line is dropped.
constexpr qint64 longestRequest = 8192;

/// Whether `start`, the first bytes of a connection, may begin a request.
bool beginsRequest(const QByteArray& start) {
    const auto couldBe = [&](const QByteArray& known) {
        return start.startsWith(known) || known.startsWith(start);
    };
    return couldBe(activationRequest) || couldBe(openPrefix);
}

}  // namespace

ZVSingleInstance::ZVSingleInstance(QString runtimeDirectory, QString lockDirectory, QObject* parent)
    : QObject(parent),
      _runtimeDirectory(std::move(runtimeDirectory)),
      _lockDirectory(lockDirectory.isEmpty() ? _runtimeDirectory : std::move(lockDirectory)) {}

ZVSingleInstance::~ZVSingleInstance() {
    // Closing removes the socket file, which must happen while the lock is
    // still ours: after that a new instance may already have made its own.
    if (_server) _server->close();
    if (_lockDescriptor >= 0) ::close(_lockDescriptor);
}

QString ZVSingleInstance::defaultRuntimeDirectory() {
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (runtime.startsWith('/')) return QString::fromLocal8Bit(runtime);
    // Without a runtime directory, a folder of the user's own in the
    // temporary directory; its mode keeps other users' lock files out.
    const QString fallback = QDir::tempPath() + QStringLiteral("/norvo-") + QString::number(::getuid());
    ::mkdir(QFile::encodeName(fallback).constData(), 0700);
    return fallback;
}

QString ZVSingleInstance::lockFilePath() const { return _lockDirectory + QStringLiteral("/com.tesselwick.norvo.lock"); }

QString ZVSingleInstance::socketPath() const {
    return _runtimeDirectory + QStringLiteral("/com.tesselwick.norvo.socket");
}

bool ZVSingleInstance::becomePrimaryInstance() {
    if (_isPrimary) return true;
    const QByteArray path = QFile::encodeName(lockFilePath());
    const int descriptor = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        // Refusing to start would lose more than the guard protects.
        ZVLog([&] { return "Cannot open the instance lock " + path.toStdString() + "; running unguarded"; });
        _isPrimary = true;
        return true;
    }
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        ::close(descriptor);
        return false;
    }
    _lockDescriptor = descriptor;
    _isPrimary = true;

    // A socket left by an instance that crashed is in the way; with the lock
    // held, nobody else is using it.
    QLocalServer::removeServer(socketPath());
    _server = new QLocalServer(this);
    _server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!_server->listen(socketPath())) {
        ZVLog([&] { return "Cannot listen on " + socketPath().toStdString() + ": " + _server->errorString().toStdString(); });
    }
    connect(_server, &QLocalServer::newConnection, this, &ZVSingleInstance::_readRequest);
    return true;
}

void ZVSingleInstance::_readRequest() {
    while (QLocalSocket* connection = _server->nextPendingConnection()) {
        connect(connection, &QLocalSocket::disconnected, connection, &QObject::deleteLater);
        connect(connection, &QLocalSocket::readyRead, this, [this, connection] {
            // Only the known requests are answered; anything else is dropped
            // as soon as its first bytes show it is none of them.
            if (!beginsRequest(connection->peek(openPrefix.size())) ||
                (!connection->canReadLine() && connection->bytesAvailable() >= longestRequest)) {
                connection->abort();
                return;
            }
            if (!connection->canReadLine()) return;
            const QByteArray line = connection->readLine(longestRequest + 1);
            if (line == activationRequest) {
                Q_EMIT activationRequested();
            } else if (line.startsWith(openPrefix) && line.endsWith('\n') && line.size() > openPrefix.size() + 1) {
                Q_EMIT URLReceived(QString::fromUtf8(line.mid(openPrefix.size()).chopped(1)));
            }
            connection->disconnectFromServer();
        });
    }
}

bool ZVSingleInstance::activateRunningInstance(int timeoutMilliseconds) const {
    return _send(activationRequest, timeoutMilliseconds);
}

bool ZVSingleInstance::openURLInRunningInstance(const QString& url, int timeoutMilliseconds) const {
    const QByteArray encoded = url.toUtf8();
    if (encoded.isEmpty() || encoded.contains('\n') || encoded.size() + openPrefix.size() >= longestRequest) return false;
    return _send(openPrefix + encoded + '\n', timeoutMilliseconds);
}

bool ZVSingleInstance::_send(const QByteArray& request, int timeoutMilliseconds) const {
    const QDeadlineTimer deadline(timeoutMilliseconds);
    // The running instance may still be starting and not yet listening.
    while (true) {
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(static_cast<int>(deadline.remainingTime()))) {
            socket.write(request);
            const bool sent = socket.waitForBytesWritten(static_cast<int>(deadline.remainingTime()));
            // Waiting for the other side to close makes sure the request was read.
            if (sent && socket.state() == QLocalSocket::ConnectedState) {
                socket.waitForDisconnected(static_cast<int>(deadline.remainingTime()));
            }
            return sent;
        }
        if (deadline.hasExpired()) return false;
        QThread::msleep(50);
    }
}
