#pragma once

#include <atomic>
#include <string>

#include <nlohmann/json.hpp>

#include "core/integrations/ZVIntegration.h"

/// A service for the tests that speaks a small JSON protocol to a fake
/// server: GET <base>/projects gives the tree, POST <base>/time takes one
/// time entry. It behaves as a real service does: no reply is a
/// no-connection error, an error status is an error with the server's
/// "error" text as the failure reason.
class TestServiceIntegration : public ZVIntegration {
public:
    std::string className() const override { return "Norvo.TestServiceIntegration"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.test"; }
    std::string integrationName() const override { return "Test Service"; }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
    std::string basicSetupViewNibName() const override { return "AddressBased"; }
    std::string accountIdentifier() const override { return "test@" + baseURL; }
    bool canPostEmptyTitle() const override { return acceptsEmptyTitle; }

    ProjectList loadRemoteProjects() override;
    void postTime(ZVIntegrationProject& project) override;

    /// A node of the protocol: {"id", "sub"?, "add"?, "name", "children"?}.
    static ProjectList projectsFromJSON(const nlohmann::json& nodes, const std::shared_ptr<ZVIntegration>& integration);

    std::string baseURL;
    bool acceptsEmptyTitle = true;
    std::atomic<int> loadCount{0};
};
