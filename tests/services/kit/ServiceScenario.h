#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ZVValue.h"
#include "testkit/FakeServer.h"

/// What a service's server says in one ordinary day, and what the service
/// must make of it: the table each service adds so that the contract suite
/// holds it to what every service owes (credentials on every request, the
/// error policy, a bad record skipped, the post it sends).
struct ServiceScenario {
    /// Sets up the server to answer every request of the service, the post
    /// included, as a healthy server does. With `withBadRecord`, one list
    /// also holds a record the service cannot use, beside the good ones.
    std::function<void(FakeServer& server, bool withBadRecord)> serve;
    /// The tree those replies build, as treeDescription() writes it.
    std::string tree;

    /// The node that is posted: its ids, the time on it and its last run's title.
    struct Node {
        std::string projectID;
        std::optional<std::string> subprojectID;
        std::optional<std::string> additionalID;
        std::uint64_t seconds = 5400;
        std::string title = "Review";
    } posted;
    /// The path the post goes to.
    std::string postPath;
    /// Members of the post's body and their text: JSON key paths, XPaths in
    /// an XML body, names in a form, or, when the body is empty, names in
    /// the query.
    std::vector<std::pair<std::string, std::string>> postMembers;

    /// Paths the service asks without credentials on purpose (a public
    /// probe of the server's version).
    std::vector<std::string> anonymousPaths;
    /// Settings laid over the new account.
    ZVDictionary settings;
};

namespace ServiceScenarios {
using Maker = std::function<ServiceScenario()>;
/// Registers the scenario of the service stored as `className`; for a
/// namespace-scope constant in the service's tests.
bool add(const std::string& className, Maker maker);
/// The service's scenario, if it has one.
std::optional<ServiceScenario> of(const std::string& className);
}  // namespace ServiceScenarios
