#include "norvoctl/ZVControlText.h"

#include <QFileInfo>
#include <QTemporaryFile>
#include <QJsonArray>
#include <algorithm>
#include <vector>

namespace {

const QString pathSeparator = QStringLiteral(" \u2794 ");

struct CommandShape {
    const char* name;
    bool takesArgument;     // one free argument (a query or a text)
    bool argumentRequired;
};

const CommandShape commands[] = {
    {"status", false, false}, {"watch", false, false}, {"start", true, false},  {"stop", false, false},
    {"toggle", false, false}, {"task", true, true},    {"search", true, true},  {"sync", false, false},
    {"post", false, false},   {"export", false, false}, {"quit", false, false}, {"help", false, false},
};

const CommandShape* shapeOf(const QString& name) {
    for (const CommandShape& shape : commands)
        if (name == QLatin1String(shape.name)) return &shape;
    return nullptr;
}

QStringList components(const QString& text, const QString& separator) {
    QStringList parts = text.split(separator);
    for (QString& part : parts) part = part.trimmed();
    parts.removeAll(QString());
    return parts;
}

}  // namespace

namespace ZVControlText {

QString usage() {
    return QStringLiteral(
        "Usage: norvoctl COMMAND [OPTIONS]\n"
        "Drives the running Norvo over the session bus.\n"
        "\n"
        "Commands:\n"
        "  status [--json | --format FORMAT]  the timer's state; \"not running\" (exit 3) without Norvo\n"
        "  watch [--format FORMAT]            the state now and one line at each change\n"
        "  start [QUERY]                      start the timer, on the first project the quick search\n"
        "                                     finds for QUERY if one is given\n"
        "  stop                               stop the timer\n"
        "  toggle                             start or stop the timer\n"
        "  task TEXT                          set what you are working on\n"
        "  search QUERY                       the projects that the quick search finds, one a line\n"
        "  sync                               synchronize the current project's account\n"
        "  post                               post the current project's time\n"
        "  export --from DAY --to DAY --out FILE\n"
        "                                     write the current project's log of those days as CSV\n"
        "                                     (DAY: YYYY-MM-DD, today or yesterday)\n"
        "  quit                               stop the timer, save and quit Norvo\n"
        "  --version                          the version of norvoctl\n"
        "\n"
        "FORMAT fields: {state} {running} {clock} {hm} {seconds} {project} {name} {task} {account} {syncing}\n"
        "Default format: \"{state} {clock} {project}\"\n"
        "\n"
        "Commands that change something start Norvo when it is not running.\n"
        "Exit status: 0 done, 1 Norvo refused, 2 bad input, 3 Norvo is not running,\n"
        "4 Norvo waits for an answer in its window.\n");
}

std::optional<ZVControlRequest> parseArguments(const QStringList& arguments, QString& error) {
    ZVControlRequest request;
    QStringList free;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            request.command = QStringLiteral("help");
            return request;
        }
        // The text of a task is taken as it stands, even when it looks like an option.
        if (!free.isEmpty() && free.first() == QLatin1String("task")) {
            free.append(argument);
            continue;
        }
        if (argument == QLatin1String("--json")) {
            request.json = true;
            continue;
        }
        QString* target = nullptr;
        QString name;
        for (auto [option, field] : {std::pair{"--format", &request.format}, std::pair{"--from", &request.from},
                                     std::pair{"--to", &request.to}, std::pair{"--out", &request.out}}) {
            const QString optionName = QString::fromLatin1(option);
            if (argument == optionName || argument.startsWith(optionName + QLatin1Char('='))) {
                target = field;
                name = optionName;
            }
        }
        if (target) {
            if (argument.size() > name.size()) {
                *target = argument.mid(name.size() + 1);
            } else if (i + 1 < arguments.size()) {
                *target = arguments[++i];
            } else {
                error = QStringLiteral("%1 needs a value").arg(name);
                return std::nullopt;
            }
            continue;
        }
        if (argument.startsWith(QLatin1Char('-')) && argument.size() > 1) {
            error = QStringLiteral("unknown option %1").arg(argument);
            return std::nullopt;
        }
        free.append(argument);
    }
    if (free.isEmpty()) {
        error = QStringLiteral("no command given; see norvoctl --help");
        return std::nullopt;
    }
    request.command = free.takeFirst();
    const CommandShape* shape = shapeOf(request.command);
    if (!shape) {
        error = QStringLiteral("unknown command \"%1\"; see norvoctl --help").arg(request.command);
        return std::nullopt;
    }
    if (!shape->takesArgument && !free.isEmpty()) {
        error = QStringLiteral("%1 takes no argument \"%2\"").arg(request.command, free.first());
        return std::nullopt;
    }
    request.argument = free.join(QLatin1Char(' '));
    // An empty text clears the task; an empty query finds everything, which no one asks for.
    if (shape->argumentRequired && (free.isEmpty() || (request.command != QLatin1String("task") &&
                                                       request.argument.trimmed().isEmpty()))) {
        error = request.command == QLatin1String("task") ? QStringLiteral("task needs a text (\"\" clears it)")
                                                         : QStringLiteral("%1 needs a query").arg(request.command);
        return std::nullopt;
    }
    const bool formats = request.command == QLatin1String("status") || request.command == QLatin1String("watch");
    if ((!request.format.isEmpty() && !formats) || (request.json && request.command != QLatin1String("status"))) {
        error = QStringLiteral("%1 takes no %2").arg(request.command, request.json ? QStringLiteral("--json")
                                                                                  : QStringLiteral("--format"));
        return std::nullopt;
    }
    if (request.json && !request.format.isEmpty()) {
        error = QStringLiteral("--json and --format exclude each other");
        return std::nullopt;
    }
    const bool exports = request.command == QLatin1String("export");
    if (exports && (request.from.isEmpty() || request.to.isEmpty() || request.out.isEmpty())) {
        error = QStringLiteral("export needs --from DAY --to DAY --out FILE");
        return std::nullopt;
    }
    if (!exports && !(request.from.isEmpty() && request.to.isEmpty() && request.out.isEmpty())) {
        error = QStringLiteral("only export takes --from, --to and --out");
        return std::nullopt;
    }
    return request;
}

std::optional<QString> formatState(const QJsonObject& state, const QString& format, QString& error) {
    const bool running = state.value(QStringLiteral("running")).toBool();
    const QString clock = state.value(QStringLiteral("clock")).toString();
    const QString project = state.value(QStringLiteral("project")).toString();
    auto field = [&](const QString& name) -> std::optional<QString> {
        if (name == QLatin1String("state")) return running ? QStringLiteral("running") : QStringLiteral("stopped");
        if (name == QLatin1String("running")) return running ? QStringLiteral("true") : QStringLiteral("false");
        if (name == QLatin1String("clock")) return clock;
        if (name == QLatin1String("hm")) return clock.left(clock.lastIndexOf(QLatin1Char(':')));
        if (name == QLatin1String("seconds"))
            return QString::number(state.value(QStringLiteral("seconds")).toInteger());
        if (name == QLatin1String("project")) return project.isEmpty() ? QStringLiteral("no project") : project;
        if (name == QLatin1String("name")) return state.value(QStringLiteral("name")).toString();
        if (name == QLatin1String("task")) return state.value(QStringLiteral("task")).toString();
        if (name == QLatin1String("account")) return project.section(pathSeparator, 0, 0);
        if (name == QLatin1String("syncing"))
            return state.value(QStringLiteral("syncing")).toBool() ? QStringLiteral("true") : QStringLiteral("false");
        return std::nullopt;
    };
    QString line;
    for (qsizetype i = 0; i < format.size(); ++i) {
        const QChar c = format[i];
        if ((c == QLatin1Char('{') || c == QLatin1Char('}')) && i + 1 < format.size() && format[i + 1] == c) {
            line += c;
            ++i;
            continue;
        }
        if (c == QLatin1Char('}')) {
            error = QStringLiteral("unmatched \"}\" in the format");
            return std::nullopt;
        }
        if (c != QLatin1Char('{')) {
            line += c;
            continue;
        }
        const qsizetype end = format.indexOf(QLatin1Char('}'), i + 1);
        if (end < 0) {
            error = QStringLiteral("unclosed \"{\" in the format");
            return std::nullopt;
        }
        const QString name = format.mid(i + 1, end - i - 1);
        const auto value = field(name);
        if (!value) {
            error = QStringLiteral("unknown field {%1} in the format; see norvoctl --help").arg(name);
            return std::nullopt;
        }
        line += *value;
        i = end;
    }
    return line;
}

std::optional<QDate> parseDay(const QString& text, const QDate& today) {
    const QString day = text.trimmed().toLower();
    if (day == QLatin1String("today")) return today;
    if (day == QLatin1String("yesterday")) return today.addDays(-1);
    // Only the full form: Qt also reads "2024-1-5", which no one means.
    if (day.size() != 10) return std::nullopt;
    const QDate date = QDate::fromString(day, QStringLiteral("yyyy-MM-dd"));
    if (!date.isValid()) return std::nullopt;
    return date;
}

int editDistance(const QString& a, const QString& b) {
    const QString left = a.toCaseFolded();
    const QString right = b.toCaseFolded();
    std::vector<int> previous(static_cast<std::size_t>(right.size()) + 1);
    std::vector<int> row(previous.size());
    for (std::size_t j = 0; j < previous.size(); ++j) previous[j] = static_cast<int>(j);
    for (qsizetype i = 1; i <= left.size(); ++i) {
        row[0] = static_cast<int>(i);
        for (qsizetype j = 1; j <= right.size(); ++j) {
            const auto column = static_cast<std::size_t>(j);
            const int substitution = previous[column - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
            row[column] = std::min({previous[column] + 1, row[column - 1] + 1, substitution});
        }
        std::swap(previous, row);
    }
    return previous.back();
}

QStringList closestProjects(const QString& query, const QStringList& paths, int count) {
    const QStringList wanted = components(query, QStringLiteral(">"));
    const QString wantedText = wanted.join(QLatin1Char('/'));
    std::vector<std::pair<int, qsizetype>> ranked;
    for (qsizetype index = 0; index < paths.size(); ++index) {
        const QStringList parts = components(paths[index], pathSeparator.trimmed());
        const QStringList tail = parts.mid(std::max<qsizetype>(0, parts.size() - std::max<qsizetype>(1, wanted.size())));
        ranked.emplace_back(editDistance(wantedText, tail.join(QLatin1Char('/'))), index);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    QStringList closest;
    for (const auto& [distance, index] : ranked) {
        if (closest.size() >= count) break;
        if (!closest.contains(paths[index])) closest.append(paths[index]);
    }
    return closest;
}

QString outputPathProblem(const QString& path) {
    const QFileInfo file(path);
    if (path.trimmed().isEmpty()) return QStringLiteral("the output path is empty");
    if (file.isDir()) return QStringLiteral("%1 is a folder").arg(path);
    const QFileInfo folder(file.absolutePath());
    if (folder.exists() && !folder.isDir()) return QStringLiteral("%1 is not a folder").arg(folder.filePath());
    if (!folder.isDir()) return QStringLiteral("the folder %1 does not exist").arg(folder.filePath());
    // Norvo writes a new file beside the old one and renames it over it, so
    // what counts is whether a file can be made in the folder; trying tells
    // that also where the permission bits do not, as for the superuser.
    QTemporaryFile probe(folder.absoluteFilePath() + QStringLiteral("/.norvoctl-XXXXXX"));
    if (!probe.open()) return QStringLiteral("%1 cannot be written").arg(file.absoluteFilePath());
    return {};
}

}  // namespace ZVControlText
