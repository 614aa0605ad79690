#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <optional>
#include <string>

#include "core/ledgrin/ZVLedgrinIntegration.h"

/// Ledgrin as a Linux desktop knows it: installed when an application
/// handles the "ledgrin" URL scheme (as `xdg-mime query default
/// x-scheme-handler/ledgrin` tells), its version from the key
/// "X-Ledgrin-Version" of that application's desktop entry, and URLs handed
/// to the desktop's URL opener.
class ZVDesktopLedgrinEnvironment final : public ZVLedgrinIntegration::Environment {
public:
    /// Runs a program and answers its standard output, or nothing when it
    /// cannot be run or fails.
    using CommandRunner = std::function<std::optional<QString>(const QString& program, const QStringList& arguments)>;
    /// Opens a URL; true when the desktop took it.
    using URLOpener = std::function<bool(const QString& url)>;

    static constexpr const char* versionKey = "X-Ledgrin-Version";

    /// Without arguments the real xdg-mime and the desktop's opener are used.
    explicit ZVDesktopLedgrinEnvironment(CommandRunner runner = {}, URLOpener opener = {});

    bool isInstalled() override;
    std::optional<std::string> installedVersion() override;
    bool openURL(const std::string& url) override;

    /// The desktop entry name of the scheme's handler ("ledgrin.desktop").
    std::optional<QString> handlerDesktopEntry();

private:
    CommandRunner _runner;
    URLOpener _opener;
};
