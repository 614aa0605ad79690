// norvoctl: drives the running Norvo over the session bus, for scripts, key
// bindings and status bars.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "norvoctl/ZVControlText.h"

namespace {

const QString service = QStringLiteral("com.tesselwick.Norvo");
const QString objectPath = QStringLiteral("/com/tesselwick/Norvo");
const QString interface = QStringLiteral("com.tesselwick.Norvo");

enum ExitStatus { done = 0, refused = 1, badInput = 2, notRunning = 3, waitingForUser = 4 };

void printLine(const QString& line, FILE* stream = stdout) {
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fputc('\n', stream);
    // A status bar reads line by line from a pipe.
    std::fflush(stream);
}

int fail(ExitStatus status, const QString& message) {
    printLine(QStringLiteral("norvoctl: ") + message, stderr);
    return status;
}

/// The answer of one call: the reply's text, or the exit status after the
/// error has been told.
struct Answer {
    std::optional<QString> text;
    int status = done;
};

/// Calls a method of Norvo. `startsNorvo` lets the bus start Norvo when it
/// is not running, and waits for it.
Answer call(const QString& method, const QVariantList& arguments, bool startsNorvo) {
    QDBusMessage message = QDBusMessage::createMethodCall(service, objectPath, interface, method);
    message.setArguments(arguments);
    message.setAutoStartService(startsNorvo);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, startsNorvo ? 60000 : 25000);
    if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty())
        return {reply.arguments().constFirst().toString(), done};
    const QString name = reply.errorName();
    if (name == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
        name == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
        if (!startsNorvo) return {std::nullopt, notRunning};
        return {std::nullopt, fail(refused, QStringLiteral("Norvo is not running and cannot be started: ") +
                                                reply.errorMessage())};
    }
    if (name == QLatin1String("com.tesselwick.Norvo.Error.WaitingForUser"))
        return {std::nullopt, fail(waitingForUser, QStringLiteral("Norvo waits for an answer in its window: ") +
                                                       reply.errorMessage())};
    if (name == QLatin1String("com.tesselwick.Norvo.Error.InvalidArgument"))
        return {std::nullopt, fail(badInput, reply.errorMessage())};
    if (name.startsWith(QLatin1String("com.tesselwick.Norvo.Error.")))
        return {std::nullopt, fail(refused, reply.errorMessage())};
    if (!QDBusConnection::sessionBus().isConnected())
        return {std::nullopt, fail(refused, QStringLiteral("no session bus"))};
    return {std::nullopt, fail(refused, QStringLiteral("Norvo did not answer: ") + reply.errorMessage())};
}

QJsonObject object(const QString& json) { return QJsonDocument::fromJson(json.toUtf8()).object(); }

int printState(const QString& json, const QString& format) {
    QString error;
    const auto line = ZVControlText::formatState(object(json), format, error);
    if (!line) return fail(badInput, error);
    printLine(*line);
    return done;
}

/// The quick search's hits for a query; none, with the closest projects
/// told, is bad input.
std::optional<QJsonArray> searchHits(const QString& query, bool startsNorvo, int& status) {
    const Answer answer = call(QStringLiteral("Search"), {query}, startsNorvo);
    if (!answer.text) {
        status = answer.status == notRunning ? fail(notRunning, QStringLiteral("not running")) : answer.status;
        return std::nullopt;
    }
    const QJsonArray hits = QJsonDocument::fromJson(answer.text->toUtf8()).array();
    if (!hits.isEmpty()) return hits;

    QStringList paths;
    const Answer all = call(QStringLiteral("Search"), {QString()}, false);
    if (all.text) {
        for (const QJsonValue& hit : QJsonDocument::fromJson(all.text->toUtf8()).array())
            paths.append(hit.toObject().value(QStringLiteral("project")).toString());
    }
    const QStringList closest = ZVControlText::closestProjects(query, paths);
    status = fail(badInput, closest.isEmpty() ? QStringLiteral("no project matches \"%1\"; there are no projects").arg(query)
                                              : QStringLiteral("no project matches \"%1\"; closest: %2")
                                                    .arg(query, closest.join(QStringLiteral(", "))));
    return std::nullopt;
}

}  // namespace

/// Prints each state that Norvo announces as one line.
class ZVStateLinePrinter : public QObject {
    Q_OBJECT
public:
    explicit ZVStateLinePrinter(QString format) : _format(std::move(format)) {}

public Q_SLOTS:
    void stateChanged(const QString& json) { printState(json, _format); }

private:
    QString _format;
};

namespace {

int watch(const QString& format) {
    QString error;
    if (!ZVControlText::formatState({}, format, error)) return fail(badInput, error);
    auto printNow = [&format] {
        const Answer answer = call(QStringLiteral("Status"), {}, false);
        if (answer.text) {
            printState(*answer.text, format);
        } else if (answer.status == notRunning) {
            printLine(QStringLiteral("not running"));
        }
    };
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return fail(refused, QStringLiteral("no session bus"));

    // Everything arrives as a signal; nothing is asked for again and again.
    ZVStateLinePrinter printer(format);
    if (!bus.connect(service, objectPath, interface, QStringLiteral("StateChanged"), &printer,
                     SLOT(stateChanged(QString))))
        return fail(refused, QStringLiteral("cannot follow Norvo's changes: ") + bus.lastError().message());
    QDBusServiceWatcher watcher(service, bus);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceRegistered, [&printNow] { printNow(); });
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered,
                     [] { printLine(QStringLiteral("not running")); });
    printNow();
    return QCoreApplication::exec();
}

int run(const ZVControlRequest& request) {
    const QString& command = request.command;
    const QString format = request.format.isEmpty() ? QString::fromLatin1(ZVControlText::defaultFormat) : request.format;
    int status = done;

    if (command == QLatin1String("help")) {
        printLine(ZVControlText::usage().trimmed());
        return done;
    }
    if (command == QLatin1String("status")) {
        QString error;
        if (!ZVControlText::formatState({}, format, error)) return fail(badInput, error);
        const Answer answer = call(QStringLiteral("Status"), {}, false);
        if (!answer.text) {
            if (answer.status == notRunning) printLine(QStringLiteral("not running"));
            return answer.status;
        }
        if (request.json) {
            printLine(*answer.text);
            return done;
        }
        return printState(*answer.text, format);
    }
    if (command == QLatin1String("watch")) return watch(format);
    if (command == QLatin1String("search")) {
        const auto hits = searchHits(request.argument, false, status);
        if (!hits) return status;
        for (const QJsonValue& hit : *hits) printLine(hit.toObject().value(QStringLiteral("project")).toString());
        return done;
    }
    if (command == QLatin1String("start") && !request.argument.isEmpty()) {
        const auto hits = searchHits(request.argument, true, status);
        if (!hits) return status;
        QJsonObject identity = hits->first().toObject();
        const QString chosen = QString::fromUtf8(QJsonDocument(identity).toJson(QJsonDocument::Compact));
        const Answer selected = call(QStringLiteral("SetCurrentProject"), {chosen}, true);
        if (!selected.text) return selected.status;
    }
    if (command == QLatin1String("start") || command == QLatin1String("stop") || command == QLatin1String("toggle")) {
        const QString method = command == QLatin1String("start")  ? QStringLiteral("Start")
                               : command == QLatin1String("stop") ? QStringLiteral("Stop")
                                                                  : QStringLiteral("Toggle");
        const Answer answer = call(method, {}, true);
        if (!answer.text) return answer.status;
        return printState(*answer.text, QString::fromLatin1(ZVControlText::defaultFormat));
    }
    if (command == QLatin1String("task")) return call(QStringLiteral("SetTaskText"), {request.argument}, true).status;
    if (command == QLatin1String("sync")) return call(QStringLiteral("Synchronize"), {}, true).status;
    if (command == QLatin1String("post")) return call(QStringLiteral("PostCurrent"), {}, true).status;
    if (command == QLatin1String("quit")) {
        const Answer answer = call(QStringLiteral("Quit"), {}, false);
        if (!answer.text && answer.status == notRunning) printLine(QStringLiteral("not running"));
        return answer.status;
    }
    if (command == QLatin1String("export")) {
        const QDate today = QDate::currentDate();
        const auto from = ZVControlText::parseDay(request.from, today);
        const auto to = ZVControlText::parseDay(request.to, today);
        for (const auto& [day, text] : {std::pair{from, request.from}, std::pair{to, request.to}}) {
            if (!day)
                return fail(badInput, QStringLiteral("\"%1\" is not a day; use YYYY-MM-DD, today or yesterday").arg(text));
        }
        if (*to < *from) return fail(badInput, QStringLiteral("--to %1 lies before --from %2").arg(request.to, request.from));
        const QString problem = ZVControlText::outputPathProblem(request.out);
        if (!problem.isEmpty()) return fail(badInput, problem);
        // Norvo runs elsewhere: it gets the path from here, not from its own folder.
        const QString file = QDir::current().absoluteFilePath(request.out);
        return call(QStringLiteral("ExportCSV"),
                    {from->toString(Qt::ISODate), to->toString(Qt::ISODate), QDir::cleanPath(file)}, true)
            .status;
    }
    return fail(badInput, QStringLiteral("unknown command \"%1\"").arg(command));
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    if (arguments == QStringList{QStringLiteral("--version")}) {
        printLine(QStringLiteral("norvoctl " NORVO_VERSION));
        return done;
    }
    QString error;
    const auto request = ZVControlText::parseArguments(arguments, error);
    if (!request) return fail(badInput, error);
    const int status = run(*request);
    // Qt's D-Bus thread may still be reading a signal of the bus when the
    // answer is in; tearing Qt down under it prints warnings about types
    // that are already gone. There is nothing left to clean up but output.
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(status);
}

#include "main.moc"
