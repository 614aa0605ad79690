#include "app/ZVDesktopLedgrinEnvironment.h"

#include <QDesktopServices>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTextStream>
#include <QUrl>

#include "ZVLog.h"

namespace {
constexpr const char* schemeHandlerType = "x-scheme-handler/ledgrin";

std::optional<QString> runCommand(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(5000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return std::nullopt;
    return QString::fromUtf8(process.readAllStandardOutput());
}

/// The value of a key of the "[Desktop Entry]" group.
std::optional<QString> desktopEntryValue(const QString& path, const QString& key) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return std::nullopt;
    QTextStream stream(&file);
    bool inEntryGroup = false;
    while (!stream.atEnd()) {
        const QString line = stream.readLine().trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inEntryGroup = line == QStringLiteral("[Desktop Entry]");
            continue;
        }
        if (!inEntryGroup) continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals > 0 && line.left(equals).trimmed() == key) return line.mid(equals + 1).trimmed();
    }
    return std::nullopt;
}
}  // namespace

ZVDesktopLedgrinEnvironment::ZVDesktopLedgrinEnvironment(CommandRunner runner, URLOpener opener)
    : _runner(runner ? std::move(runner) : CommandRunner(runCommand)),
      _opener(opener ? std::move(opener) : URLOpener([](const QString& url) {
          return QDesktopServices::openUrl(QUrl(url));
      })) {}

std::optional<QString> ZVDesktopLedgrinEnvironment::handlerDesktopEntry() {
    const auto output =
        _runner(QStringLiteral("xdg-mime"), {QStringLiteral("query"), QStringLiteral("default"),
                                             QString::fromUtf8(schemeHandlerType)});
    if (!output) return std::nullopt;
    const QString entry = output->trimmed();
    if (entry.isEmpty()) return std::nullopt;
    return entry;
}

bool ZVDesktopLedgrinEnvironment::isInstalled() { return handlerDesktopEntry().has_value(); }

std::optional<std::string> ZVDesktopLedgrinEnvironment::installedVersion() {
    const auto entry = handlerDesktopEntry();
    if (!entry) return std::nullopt;
    const QString path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, *entry);
    if (path.isEmpty()) return std::nullopt;
    const auto version = desktopEntryValue(path, QString::fromUtf8(versionKey));
    if (!version || version->isEmpty()) return std::nullopt;
    return version->toStdString();
}

bool ZVDesktopLedgrinEnvironment::openURL(const std::string& url) {
    const bool opened = _opener(QString::fromStdString(url));
    if (!opened) ZVLog([&] { return "The desktop did not open " + url; });
    return opened;
}
