#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <functional>
#include <memory>

#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/TemporaryHome.h"

/// The process's QApplication (offscreen unless a platform is chosen) with
/// the Qt main queue and timers installed; made once, before the first test.
QApplication& shellApplication();

/// Spins the Qt event loop until the condition holds or the time is up.
bool processEventsUntil(const std::function<bool()>& condition, int timeoutMilliseconds = 2000);

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
    /// A node with the given name under a parent (or at the account's top).
    static ZVIntegrationProject::Pointer addProject(const std::shared_ptr<ZVIntegration>& account,
                                                    const std::string& name,
                                                    const ZVIntegrationProject::Pointer& parent = nullptr);

    TemporaryHome home;
    InMemoryKeychain keychain;
};
