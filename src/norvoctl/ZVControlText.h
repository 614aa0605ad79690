#pragma once

#include <QDate>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <optional>

/// What `norvoctl` was asked to do, read from its command line.
struct ZVControlRequest {
    QString command;          // "status", "watch", "start", ... or "help"
    QString argument;         // the query of start and search, the text of task
    bool json = false;        // status --json
    QString format;           // --format, empty for the default line
    QString from, to, out;    // export
};

/// The text side of `norvoctl`, free of any bus: reading the command line,
/// writing the state as a line, reading days, finding the projects closest
/// to a query that found nothing, and checking an output path.
namespace ZVControlText {

/// The request, or a one-line message saying what is wrong with the line.
std::optional<ZVControlRequest> parseArguments(const QStringList& arguments, QString& error);

/// The help text of `norvoctl --help`.
QString usage();

/// The line that `status` and `watch` print when no format is given.
inline constexpr const char* defaultFormat = "{state} {clock} {project}";

/// Fills a format's fields from the state: {state} ("running", "stopped"),
/// {running}, {clock}, {hm} (hours and minutes), {seconds}, {project} (the
/// path, or "no project"), {name}, {task}, {account}, {syncing}. "{{" and
/// "}}" stand for braces. An unknown or unclosed field is an error.
std::optional<QString> formatState(const QJsonObject& state, const QString& format, QString& error);

/// A day as YYYY-MM-DD, "today" or "yesterday".
std::optional<QDate> parseDay(const QString& text, const QDate& today);

/// The number of single-character insertions, deletions and substitutions
/// that turn one text into the other, ignoring case.
int editDistance(const QString& a, const QString& b);

/// The `count` project paths closest to a query: the query's components
/// (split at any spelling of ">") against as many trailing components of
/// each path, by edit distance; ties keep the order of the paths.
QStringList closestProjects(const QString& query, const QStringList& paths, int count = 3);

/// Why a CSV file cannot be written at `path`, or an empty text.
QString outputPathProblem(const QString& path);

}  // namespace ZVControlText
