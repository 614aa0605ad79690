#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/sync/CoreTestEnvironment.h"
#include "core/sync/TestServiceIntegration.h"
#include "core/sync/ZVIntegrationSyncHelper.h"

namespace {

using ProjectList = ZVIntegrationSyncHelper::ProjectList;
using ProjectPointer = ZVIntegrationSyncHelper::ProjectPointer;

const std::string keepQuestion =
    "Test cannot find '%@' at the remote site, but you have time logged on this project. Do you wish to remove it "
    "anyway?";

std::string questionFor(const std::string& name) {
    std::string text = keepQuestion;
    text.replace(text.find("%@"), 2, name);
    return text;
}

class MergeTest : public ::testing::Test {
protected:
    void SetUp() override {
        account = env.makeAccount("http://127.0.0.1:9");
        account->setName("Test");
    }

    ProjectPointer node(const std::string& name, const std::string& id, std::optional<std::string> sub = std::nullopt,
                        std::uint64_t time = 0) {
        auto project = ZVIntegrationProject::create(name, id, std::move(sub));
        project->setIntegration(account);
        project->setTimeWithoutSaving(time);
        return project;
    }

    ProjectPointer parentWith(const std::string& name, const std::string& id, const ProjectList& children,
                              std::uint64_t time = 0) {
        auto parent = node(name, id, std::nullopt, time);
        for (const auto& child : children) parent->addSubproject(child);
        return parent;
    }

    void merge(ProjectList& local, const ProjectList& remote) {
        ZVIntegrationSyncHelper helper(account);
        helper.mergeProjects(local, nullptr, remote);
    }

    CoreTestEnvironment env;
    std::shared_ptr<TestServiceIntegration> account;
};

TEST_F(MergeTest, AdoptedNodeGetsTheParentAndItsWholeSubtree) {
    auto parent = node("Parent", "p");
    auto fetched = parentWith("New", "n", {node("Child", "n", "c")});
    ProjectList children;
    ZVIntegrationSyncHelper(account).mergeProjects(children, parent, {fetched});
    ASSERT_EQ(children.size(), 1u);
    EXPECT_EQ(children[0], fetched);
    EXPECT_EQ(fetched->parentProject(), parent);
    EXPECT_EQ(fetched->subprojects().size(), 1u);
}

TEST_F(MergeTest, DuplicateRemoteNodesMergeIntoTheFirstOne) {
    auto first = parentWith("First", "1", {node("a", "1", "a")});
    auto second = parentWith("Second", "1", {node("b", "1", "b")});
    ProjectList projects;
    merge(projects, {first, second});
    ASSERT_EQ(projects.size(), 1u);
    EXPECT_EQ(projects[0], first);
    EXPECT_EQ(first->name(), "Second");
    // The second listing of the node is merged into the first as a refresh
    // would be: its children are the ones that survive, and "a", without
    // time, is gone from it.
    EXPECT_EQ(namesOf(first->subprojects()), (std::vector<std::string>{"b"}));
}

TEST_F(MergeTest, VanishedNodesWithoutTimeGoSilentlyAndAParentWithTimeIsAskedAbout) {
    auto withTime = node("Five", "p", "5", 5);
    auto empty = node("Zero", "p", "0", 0);
    auto parent = parentWith("Parent", "p", {withTime, empty});
    ProjectList projects{node("Empty", "1"), parent, node("Also empty", "2")};
    env.ui.answerWith("Remove");
    merge(projects, {});
    EXPECT_EQ(namesOf(parent->subprojects()), (std::vector<std::string>{"Five"}));
    ASSERT_EQ(env.ui.alerts().size(), 1u);
    const auto alert = env.ui.alerts()[0];
    EXPECT_EQ(alert.messageText, questionFor("Parent"));
    EXPECT_EQ(alert.informativeText, "This action cannot be undone.");
    EXPECT_EQ(alert.buttons, (std::vector<std::string>{"Keep", "Remove"}));
    EXPECT_TRUE(alert.ignoresKeyPressesAtFirst);
    EXPECT_TRUE(projects.empty());
}

TEST_F(MergeTest, KeepLeavesTheNodeAndTheNextRefreshAsksAgain) {
    auto kept = node("Kept", "1", std::nullopt, 60);
    ProjectList projects{kept};
    env.ui.answerWith("Keep");
    merge(projects, {});
    ASSERT_EQ(projects.size(), 1u);
    EXPECT_EQ(projects[0], kept);

    env.ui.answerWith("Keep");
    merge(projects, {});
    EXPECT_EQ(env.ui.alertMessages(), (std::vector<std::string>{questionFor("Kept"), questionFor("Kept")}));
    EXPECT_EQ(projects.size(), 1u);
}

TEST_F(MergeTest, RemovingTheCurrentProjectClearsItAndTellsTheUser) {
    auto current = node("Current", "1", std::nullopt, 30);
    env.setCurrentProject(current);
    ProjectList projects{current};
    env.ui.answerWith("Remove");
    merge(projects, {});
    EXPECT_TRUE(projects.empty());
    // The clearing is queued for the main thread, not done inside the merge.
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), current);
    env.mainQueue.drain();
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), nullptr);
    EXPECT_EQ(env.ui.alertMessages().back(),
              "\"Current\" is no longer available - it has been removed from the server.");
}

TEST_F(MergeTest, RenamedNodesKeepTheirObjectTimeAndLogAndTheirChildrenMergeUnderThem) {
    auto child = node("Old child", "1", "c", 10);
    auto run = std::make_shared<ZVTimeLogEntry>(child);
    child->addLogEntry(run);
    auto parent = parentWith("Old name", "1", {child}, 120);
    ProjectList projects{parent};
    merge(projects, {parentWith("Parent", "1", {node("New child", "1", "c"), node("Added", "1", "d")})});
    ASSERT_EQ(projects.size(), 1u);
    EXPECT_EQ(projects[0], parent);
    EXPECT_EQ(parent->name(), "Parent");
    EXPECT_EQ(parent->time(), 120u);
    ASSERT_EQ(parent->subprojects().size(), 2u);
    EXPECT_EQ(parent->subprojects()[0], child);
    EXPECT_EQ(child->name(), "New child");
    EXPECT_EQ(child->time(), 10u);
    EXPECT_EQ(child->logEntries(), std::vector<std::shared_ptr<ZVLogEntry>>{run});
    EXPECT_EQ(parent->subprojects()[1]->parentProject(), parent);
    EXPECT_TRUE(env.ui.alerts().empty()) << "nodes that are still there are never asked about";
}

TEST_F(MergeTest, QuestionIsAskedOnTheMainThreadWhileTheMergeWaits) {
    ProjectList projects{node("Busy", "1", std::nullopt, 90)};
    env.ui.answerWith("Remove");
    std::atomic<bool> finished{false};
    std::thread sync([&] {
        merge(projects, {});
        finished = true;
    });
    ASSERT_TRUE(env.mainQueue.waitForPost(5));
    EXPECT_FALSE(finished.load());
    EXPECT_TRUE(env.ui.alerts().empty());
    env.mainQueue.drain();
    sync.join();
    EXPECT_EQ(env.ui.alertMessages(), std::vector<std::string>{questionFor("Busy")});
    EXPECT_TRUE(projects.empty());
}

// Identity through the index must agree with isEqualToProject for every
// combination of identifiers, blank and empty ones included.
TEST(IdentityKeyTest, AgreesWithIsEqualToProject) {
    const std::vector<std::optional<std::string>> values{std::nullopt, std::string(), std::string("a"),
                                                         std::string("b")};
    std::vector<ZVIntegrationSyncHelper::ProjectPointer> nodes;
    for (const std::string projectID : {"1", "2"}) {
        for (const auto& sub : values) {
            for (const auto& additional : values) {
                auto project = ZVIntegrationProject::create("n", projectID, sub);
                project->setAdditionalID(additional);
                nodes.push_back(project);
            }
        }
    }
    for (const auto& first : nodes) {
        for (const auto& second : nodes) {
            EXPECT_EQ(first->isEqualToProject(*second),
                      ZVIntegrationSyncHelper::identityKey(*first) == ZVIntegrationSyncHelper::identityKey(*second))
                << first->description() << " vs " << second->description();
        }
    }
}

// The first pass as a walk through the list would do it: for each fetched
// node, the first equal node of the list as it stands, or adoption at the
// end; duplicates on either side and renames included.
std::vector<std::string> referenceFirstPass(std::vector<std::pair<std::string, std::string>> local,
                                            const std::vector<std::pair<std::string, std::string>>& remote) {
    for (const auto& [id, name] : remote) {
        auto found = std::find_if(local.begin(), local.end(), [&](const auto& entry) { return entry.first == id; });
        if (found == local.end()) {
            local.emplace_back(id, name);
        } else {
            found->second = name;
        }
    }
    std::vector<std::string> names;
    for (const auto& entry : local) names.push_back(entry.first + "=" + entry.second);
    return names;
}

TEST_F(MergeTest, IndexedMergeMatchesAWalkThroughTheListWithDuplicatesAndRenames) {
    std::mt19937 random(7);
    for (int round = 0; round < 20; ++round) {
        std::vector<std::pair<std::string, std::string>> localPairs;
        std::vector<std::pair<std::string, std::string>> remotePairs;
        for (int index = 0; index < 60; ++index) {
            localPairs.emplace_back(std::to_string(random() % 25), "local" + std::to_string(index));
            remotePairs.emplace_back(std::to_string(random() % 40), "remote" + std::to_string(index));
        }
        ProjectList projects;
        for (const auto& [id, name] : localPairs) projects.push_back(node(name, id, std::nullopt, 1));
        ProjectList remote;
        for (const auto& [id, name] : remotePairs) remote.push_back(node(name, id));
        // Every local node holds time, so vanished ones are asked about: keep them all.
        for (int index = 0; index < 60; ++index) env.ui.answerWith("Keep");
        merge(projects, remote);

        std::vector<std::string> merged;
        for (const auto& project : projects) merged.push_back(project->projectID() + "=" + project->name());
        EXPECT_EQ(merged, referenceFirstPass(localPairs, remotePairs)) << "round " << round;
        env.ui.discardUnusedAnswers();
    }
}

}  // namespace
