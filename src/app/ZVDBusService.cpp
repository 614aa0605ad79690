#include "app/ZVDBusService.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QApplication>
#include <QDate>
#include <QDateTime>
#include <QDir>
#include <QEvent>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QThread>
#include <chrono>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "app/ZVNorvoAppDelegate.h"
#include "app/ZVNorvoMainWindow.h"
#include "core/actions/ZVActionCenter.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/log/ZVLogController.h"
#include "ui_elements/ZVProjectQuickSearch.h"

namespace {

constexpr const char* noProjectError = "com.tesselwick.Norvo.Error.NoProject";
constexpr const char* unknownProjectError = "com.tesselwick.Norvo.Error.UnknownProject";
constexpr const char* invalidArgumentError = "com.tesselwick.Norvo.Error.InvalidArgument";
constexpr const char* cannotPostError = "com.tesselwick.Norvo.Error.CannotPost";
constexpr const char* nothingToSynchronizeError = "com.tesselwick.Norvo.Error.NothingToSynchronize";
constexpr const char* exportFailedError = "com.tesselwick.Norvo.Error.ExportFailed";
constexpr const char* waitingForUserError = "com.tesselwick.Norvo.Error.WaitingForUser";
constexpr const char* loadingError = "com.tesselwick.Norvo.Error.Loading";

QString text(const std::string& utf8) { return QString::fromStdString(utf8); }

QString compact(const QJsonObject& object) {
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;


// A node's identifiers in their four places; an absent one in the middle is
// a null, so that the places keep their meaning.
QJsonArray identifiersOf(const ZVIntegrationProject& project) {
    const std::optional<std::string> identifiers[] = {project.projectID(), project.subprojectID(),
                                                      project.additionalID(), project.fourthID()};
    std::size_t count = 4;
    while (count > 1 && !identifiers[count - 1]) --count;
    QJsonArray array;
    for (std::size_t i = 0; i < count; ++i)
        array.append(identifiers[i] ? QJsonValue(text(*identifiers[i])) : QJsonValue(QJsonValue::Null));
    return array;
}

ProjectPointer projectWithIdentifiers(const std::vector<ProjectPointer>& projects, const QJsonArray& identifiers) {
    for (const auto& project : projects) {
        if (identifiersOf(*project) == identifiers) return project;
        if (auto found = projectWithIdentifiers(project->subprojects(), identifiers)) return found;
    }
    return nullptr;
}

ZVDate dateOf(const QDateTime& moment) {
    return ZVDate(std::chrono::duration<double>(static_cast<double>(moment.toMSecsSinceEpoch()) / 1000.0));
}

}  // namespace

ZVDBusService::ZVDBusService(ZVNorvoAppDelegate& delegate, QObject* parent) : QObject(parent), _delegate(delegate) {
    _minuteTimer.setSingleShot(true);
    _minuteTimer.setTimerType(Qt::PreciseTimer);
    connect(&_minuteTimer, &QTimer::timeout, this, [this] {
        _publishState(true);
        _armMinuteUpdate();
    });

    auto& notifications = ZVNotificationCenter::shared();
    _observations.push_back(notifications.addObserver(ZVHeartBeatStateDidChangeNotification, [this](const ZVNotification&) {
        _scheduleStateChange();
    }));
    for (const char* name : {ZVIntegrationCenterCurrentProjectDidChangeNotification,
                             ZVIntegrationProjectTimeDidChangeNotification, ZVIntegrationProjectTimeDidResetNotification,
                             ZVIntegrationCenterSynchronizationDidStartNotification,
                             ZVIntegrationCenterSynchronizationDidEndNotification,
                             ZVIntegrationCenterDidLoadNotification}) {
        _observations.push_back(
            notifications.addObserver(name, [this](const ZVNotification&) { _scheduleStateChange(); }));
    }
    if (ZVNorvoMainWindow* window = _delegate.window())
        connect(window->currentTaskTextField(), &QLineEdit::editingFinished, this, &ZVDBusService::_scheduleStateChange);
}

ZVDBusService::~ZVDBusService() {
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
    if (!_pendingReplies.empty()) qApp->removeEventFilter(this);
}

bool ZVDBusService::registerOn(QDBusConnection connection) {
    if (!connection.isConnected()) {
        ZVLog([] { return std::string("No session bus: scripts cannot reach Norvo"); });
        return false;
    }
    if (!connection.registerObject(QString::fromLatin1(objectPath), this,
                                   QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportScriptableSignals)) {
        ZVLog([] { return std::string("Cannot publish Norvo's object on the session bus"); });
        return false;
    }
    if (!connection.registerService(QString::fromLatin1(serviceName))) {
        ZVLog([&] { return "Cannot take the bus name: " + connection.lastError().message().toStdString(); });
        connection.unregisterObject(QString::fromLatin1(objectPath));
        return false;
    }
    return true;
}

QJsonObject ZVDBusService::projectIdentity(const ZVIntegrationProject& project) {
    const auto integration = project.integration();
    return QJsonObject{{QStringLiteral("project"), text(project.fullProjectPath())},
                       {QStringLiteral("name"), text(project.name())},
                       {QStringLiteral("projectIdentifiers"), identifiersOf(project)},
                       {QStringLiteral("accountIdentifier"), integration ? text(integration->integrationID()) : QString()}};
}

QJsonObject ZVDBusService::state() const {
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    const auto* center = ZVIntegrationCenter::sharedIfExists();
    const auto project = ZVIntegrationCenter::sharedCurrentProject();
    QJsonObject state = project ? projectIdentity(*project)
                                : QJsonObject{{QStringLiteral("project"), QString()},
                                              {QStringLiteral("name"), QString()},
                                              {QStringLiteral("projectIdentifiers"), QJsonArray()},
                                              {QStringLiteral("accountIdentifier"), QString()}};
    state.insert(QStringLiteral("running"), heartBeat.isBeating());
    state.insert(QStringLiteral("seconds"), static_cast<qint64>(heartBeat.currentTime()));
    state.insert(QStringLiteral("clock"), text(ZVHeartBeat::clockString(heartBeat.currentTime())));
    const ZVNorvoMainWindow* window = _delegate.window();
    state.insert(QStringLiteral("task"), window ? window->currentTaskTextField()->text() : QString());
    state.insert(QStringLiteral("syncing"), center && center->synchronizationIsInProgress());
    state.insert(QStringLiteral("loading"), !center || !center->isLoaded());
    return state;
}

ProjectPointer ZVDBusService::projectNamed(const QString& pathOrIdentifiers) {
    const QString trimmed = pathOrIdentifiers.trimmed();
    if (trimmed.startsWith(QLatin1Char('{'))) {
        const QJsonObject identity = QJsonDocument::fromJson(trimmed.toUtf8()).object();
        const QString account = identity.value(QStringLiteral("accountIdentifier")).toString();
        const QJsonArray identifiers = identity.value(QStringLiteral("projectIdentifiers")).toArray();
        if (identifiers.isEmpty()) return nullptr;
        auto accounts = ZVIntegrationCenter::shared().integrations();
        accounts.push_back(ZVNorvoIntegration::sharedIntegration());
        for (const auto& integration : accounts) {
            if (text(integration->integrationID()) == account)
                return projectWithIdentifiers(integration->availableProjects(), identifiers);
        }
        return nullptr;
    }
    // A path is what the quick search finds when given the whole path.
    const std::string path = ZVProjectQuickSearch::normalizedQuery(trimmed.toStdString());
    for (const auto& project : ZVProjectQuickSearch::searchAllProjects(path)) {
        if (text(project->fullProjectPath()).compare(text(path), Qt::CaseInsensitive) == 0) return project;
    }
    return nullptr;
}

QString ZVDBusService::_run(std::function<std::optional<Failure>()> command, Waiting waiting) {
    if (waiting == Waiting::forProjects &&
        _deferUntilLoaded([this, command](const std::shared_ptr<PendingReply>& pending) { _runAndReply(pending, command); }))
        return {};
    if (!calledFromDBus()) {
        const std::optional<Failure> failure = command();
        if (_stateChangeScheduled) _publishState(false);
        _lastError = failure ? failure->message : QString();
        return failure ? QString() : compact(state());
    }
    setDelayedReply(true);
    _runAndReply(std::make_shared<PendingReply>(PendingReply{message(), connection()}), command);
    return {};
}

void ZVDBusService::_runAndReply(const std::shared_ptr<PendingReply>& pending,
                                 const std::function<std::optional<Failure>()>& command) {
    if (_pendingReplies.empty()) qApp->installEventFilter(this);
    _pendingReplies.push_back(pending);
    const std::optional<Failure> failure = command();
    // The change goes out before the reply, so that a caller that has its
    // answer never sees the announcement of its own command come later.
    if (_stateChangeScheduled) _publishState(false);
    std::erase(_pendingReplies, pending);
    if (_pendingReplies.empty()) qApp->removeEventFilter(this);
    if (!pending->answered) {
        pending->answered = true;
        pending->connection.send(failure ? pending->call.createErrorReply(QString::fromLatin1(failure->errorName),
                                                                          failure->message)
                                         : pending->call.createReply(compact(state())));
    }
}

bool ZVDBusService::_deferUntilLoaded(std::function<void(const std::shared_ptr<PendingReply>&)> answer) {
    auto& center = ZVIntegrationCenter::shared();
    if (!calledFromDBus() || center.isLoaded()) return false;
    setDelayedReply(true);
    auto pending = std::make_shared<PendingReply>(PendingReply{message(), connection()});
    ZVLog([&] { return "The call " + pending->call.member().toStdString() + " waits for the projects"; });
    QTimer::singleShot(loadingWaitMilliseconds, this, [pending] {
        if (pending->answered) return;
        pending->answered = true;
        pending->connection.send(pending->call.createErrorReply(
            QString::fromLatin1(loadingError),
            ZVLocalizedQString("Norvo is still loading its projects. Try again in a moment.")));
    });
    center.performWhenLoaded([self = QPointer<ZVDBusService>(this), pending, answer = std::move(answer)] {
        // Answered already: the caller was told that nothing happened.
        if (self && !pending->answered) answer(pending);
    });
    return true;
}

bool ZVDBusService::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::Show) return false;
    auto* widget = qobject_cast<QWidget*>(watched);
    if (!widget || !widget->isWindow() || !widget->isModal()) return false;
    const auto* box = qobject_cast<QMessageBox*>(widget);
    QString question = box ? box->text() : widget->accessibleName();
    if (question.isEmpty()) question = widget->windowTitle();
    question.replace(QLatin1Char('\n'), QLatin1Char(' '));
    for (const auto& pending : _pendingReplies) {
        if (pending->answered) continue;
        pending->answered = true;
        pending->connection.send(pending->call.createErrorReply(QString::fromLatin1(waitingForUserError), question));
    }
    return false;
}

QString ZVDBusService::Start() {
    return _run([]() -> std::optional<Failure> {
        if (!ZVHeartBeat::sharedHeartBeat().isBeating()) ZVActionCenter::shared().toggleTimer();
        if (!ZVHeartBeat::sharedHeartBeat().isBeating()) return Failure{noProjectError, ZVLocalizedQString("No project selected.")};
        return std::nullopt;
    });
}

QString ZVDBusService::Stop() {
    return _run([]() -> std::optional<Failure> {
        if (ZVHeartBeat::sharedHeartBeat().isBeating()) ZVActionCenter::shared().toggleTimer();
        return std::nullopt;
    });
}

QString ZVDBusService::Toggle() {
    return _run([]() -> std::optional<Failure> {
        const bool wasRunning = ZVHeartBeat::sharedHeartBeat().isBeating();
        ZVActionCenter::shared().toggleTimer();
        if (!wasRunning && !ZVHeartBeat::sharedHeartBeat().isBeating())
            return Failure{noProjectError, ZVLocalizedQString("No project selected.")};
        return std::nullopt;
    });
}

QString ZVDBusService::Quit() {
    // A quit while the projects are read writes nothing and need not wait.
    return _run(
        [this]() -> std::optional<Failure> {
            _delegate.terminate();
            return std::nullopt;
        },
        Waiting::no);
}

QString ZVDBusService::Status() { return compact(state()); }

QString ZVDBusService::Search(const QString& query) {
    auto results = [query] {
        QJsonArray found;
        for (const auto& project : ZVProjectQuickSearch::searchAllProjects(query.toStdString()))
            found.append(projectIdentity(*project));
        return QString::fromUtf8(QJsonDocument(found).toJson(QJsonDocument::Compact));
    };
    if (_deferUntilLoaded([results](const std::shared_ptr<PendingReply>& pending) {
            pending->answered = true;
            pending->connection.send(pending->call.createReply(results()));
        }))
        return {};
    return results();
}

QString ZVDBusService::SetCurrentProject(const QString& pathOrIdentifiers) {
    return _run([pathOrIdentifiers]() -> std::optional<Failure> {
        const auto project = projectNamed(pathOrIdentifiers);
        if (!project)
            return Failure{unknownProjectError, QStringLiteral("No project matches \"%1\".").arg(pathOrIdentifiers)};
        // What choosing a quick-search result does.
        ZVIntegrationCenter::shared().setCurrentProject(project);
        return std::nullopt;
    });
}

QString ZVDBusService::SetTaskText(const QString& taskText) {
    return _run([this, taskText]() -> std::optional<Failure> {
        ZVNorvoMainWindow* window = _delegate.window();
        if (!window) return Failure{invalidArgumentError, QStringLiteral("Norvo has no timer window yet.")};
        // What typing into the field and leaving it does.
        window->currentTaskTextField()->setText(taskText);
        _delegate.timeEntryTextHasChanged();
        _scheduleStateChange();
        return std::nullopt;
    });
}

QString ZVDBusService::Synchronize() {
    return _run([]() -> std::optional<Failure> {
        const auto project = ZVIntegrationCenter::sharedCurrentProject();
        const auto integration = project ? project->integration() : nullptr;
        if (!integration || integration->isLocalAccount())
            return Failure{nothingToSynchronizeError,
                           QStringLiteral("The current project belongs to no account that can be synchronized.")};
        // The account menu's "Synchronize Now".
        integration->synchronize();
        return std::nullopt;
    });
}

QString ZVDBusService::PostCurrent() {
    return _run([this]() -> std::optional<Failure> {
        const auto project = ZVIntegrationCenter::sharedCurrentProject();
        const auto integration = project ? project->integration() : nullptr;
        _delegate.postTime();
        if (!project) return Failure{noProjectError, ZVLocalizedQString("No project selected.")};
        if (integration && integration->isLocalAccount())
            return Failure{cannotPostError, QStringLiteral("The time of local projects is not posted anywhere.")};
        return std::nullopt;
    });
}

QString ZVDBusService::ExportCSV(const QString& from, const QString& to, const QString& file) {
    return _run([this, from, to, file]() -> std::optional<Failure> {
        const QDate first = QDate::fromString(from, Qt::ISODate);
        const QDate last = QDate::fromString(to, Qt::ISODate);
        for (const auto& [date, argument] : {std::pair{first, from}, std::pair{last, to}}) {
            if (!date.isValid())
                return Failure{invalidArgumentError, QStringLiteral("\"%1\" is not a date (YYYY-MM-DD).").arg(argument)};
        }
        if (last < first) return Failure{invalidArgumentError, QStringLiteral("The last day lies before the first.")};
        if (!QDir::isAbsolutePath(file))
            return Failure{invalidArgumentError, QStringLiteral("\"%1\" is not an absolute path.").arg(file)};
        ZVLogController* log = _delegate.logController();
        if (!log) return Failure{invalidArgumentError, QStringLiteral("Norvo has no log yet.")};
        const auto entries = log->logsBetween(dateOf(first.startOfDay()), dateOf(last.addDays(1).startOfDay()));
        if (!log->exportToCSV(entries, file.toStdString()))
            return Failure{exportFailedError, QStringLiteral("Norvo cannot write the file \"%1\".").arg(file)};
        return std::nullopt;
    });
}

void ZVDBusService::_scheduleStateChange() {
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(this, &ZVDBusService::_scheduleStateChange, Qt::QueuedConnection);
        return;
    }
    // One look at the state after the command or notification has run to its
    // end: a change of project while running stops and starts the timer, and
    // watchers want one line for it.
    if (_stateChangeScheduled) return;
    _stateChangeScheduled = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            _stateChangeScheduled = false;
            _publishState(false);
        },
        Qt::QueuedConnection);
}

void ZVDBusService::_publishState(bool everyMinute) {
    if (ZVHeartBeat::sharedHeartBeat().isBeating()) {
        if (!_minuteTimer.isActive()) _armMinuteUpdate();
    } else {
        _minuteTimer.stop();
    }
    const QJsonObject current = state();
    // While the timer runs the clock moves on its own; only the minute
    // update reports it.
    auto withoutClock = [](QJsonObject object) {
        if (object.value(QStringLiteral("running")).toBool()) {
            object.remove(QStringLiteral("clock"));
            object.remove(QStringLiteral("seconds"));
        }
        return object;
    };
    if (!everyMinute && withoutClock(current) == withoutClock(_lastPublishedState)) return;
    _lastPublishedState = current;
    Q_EMIT StateChanged(compact(current));
}

void ZVDBusService::_armMinuteUpdate() {
    // Half a second after the clock's next minute begins: the clock's text
    // follows the timer's half-second tick.
    const auto seconds = ZVHeartBeat::sharedHeartBeat().currentTime();
    _minuteTimer.start(static_cast<int>((60 - seconds % 60) * 1000 + 500));
}
