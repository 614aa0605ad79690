#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/ui/ZVMenu.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/ScriptedUserInterface.h"
#include "testkit/TemporaryHome.h"

class ZVNorvoAppDelegate;

/// The process's QApplication (offscreen unless a platform is chosen) with
/// the Qt main queue and timers installed; made once, before the first test.
QApplication& shellApplication();

/// Spins the Qt event loop until the condition holds or the time is up.
bool processEventsUntil(const std::function<bool()>& condition, int timeoutMilliseconds = 2000);

/// The words of a command line, split at single spaces.
QStringList words(const char* line);

/// A path relative to the folder of the running test executable, in the build tree.
QString buildTreePath(const QString& relative);

/// The titles of a menu's items joined by "|", "-" for a separator.
std::string titles(const ZVMenu& menu);

/// The first item of the menu that stands for the project (the one that selects it), or none.
ZVMenuItem* itemOfProject(const ZVMenu& menu, const ZVIntegrationProject::Pointer& project);

/// Sets an environment variable for the life of the object.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const std::string& value);
    ~ScopedVariable() { restore(); }
    void restore();

private:
    const char* _name;
    std::optional<std::string> _old;
};

/// A node named as given, with the identifier "<name>-id", under a parent
/// (or at the account's top).
ZVIntegrationProject::Pointer addProject(const std::shared_ptr<ZVIntegration>& account, const std::string& name,
                                         const ZVIntegrationProject::Pointer& parent = nullptr);

/// A remote account for shell tests that never reaches a network.
class ZVShellTestIntegration : public ZVIntegration {
public:
    std::string className() const override { return "Norvo.ZVShellTestIntegration"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.shelltest"; }
    std::string integrationName() const override { return "Shell Test"; }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
    std::string accountIdentifier() const override { return "shell-test"; }
    std::string basicSetupViewNibName() const override { return {}; }
    void synchronize() override {}
};

/// A fresh home, key store, centre, local account and heart beat per test,
/// on the real Qt event loop.
class ShellFixture : public ::testing::Test {
protected:
    ShellFixture();
    ~ShellFixture() override;

    /// A remote account that the centre holds, named as given.
    std::shared_ptr<ZVShellTestIntegration> addAccount(const std::string& name);

    TemporaryHome home;
    InMemoryKeychain keychain;
};

/// The launched application with its windows, answering alerts from a script.
class LaunchedAppFixture : public ShellFixture {
protected:
    LaunchedAppFixture();
    ~LaunchedAppFixture() override;

    /// Waits for a refresh that is under way (the launch starts one).
    static void waitForRefresh();

    ScriptedUserInterface ui;
    std::unique_ptr<ZVNorvoAppDelegate> delegate;
};
