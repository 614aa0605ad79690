#include <string>
#include <vector>

#include "ZVPreferences.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/IntegrationTestFixture.h"

namespace {

std::vector<std::string> storedNames() {
    std::vector<std::string> names;
    const auto stored = ZVPreferences::shared().value("KDNorvoIntegration");
    if (!stored || !stored->array()) return names;
    for (const auto& value : *stored->array()) names.push_back(ZVStringValue(*value.dictionary(), "KDIntegrationProjectName"));
    return names;
}

class NorvoIntegrationTests : public IntegrationTestFixture {
protected:
    std::shared_ptr<ZVNorvoIntegration> local = ZVNorvoIntegration::sharedIntegration();
};

TEST_F(NorvoIntegrationTests, LocalAccountHasFixedFacts) {
    EXPECT_EQ(local->name(), "Projects");
    EXPECT_EQ(local->integrationID(), "KD_NORVO_LOCAL_INTEGRATION");
    EXPECT_FALSE(local->canPostTime());
    EXPECT_TRUE(local->isLocalAccount());
    EXPECT_EQ(local->authentication(), nullptr);
    for (const auto& integrationClass : ZVIntegrationRegistry::availableIntegrationClasses())
        EXPECT_NE(integrationClass.className, "Norvo.ZVNorvoIntegration");
}

TEST_F(NorvoIntegrationTests, AddedProjectBecomesCurrentAndIsStoredInThePreferences) {
    ui.answerTextPromptWith("Alpha");
    local->addProjectAction();
    ASSERT_EQ(ui.textPrompts().size(), 1u);
    EXPECT_EQ(ui.textPrompts()[0].alert.messageText, "Enter the project name:");
    EXPECT_EQ(ui.textPrompts()[0].alert.buttons, (std::vector<std::string>{"OK", "Cancel"}));

    const auto projects = local->availableProjects();
    ASSERT_EQ(projects.size(), 1u);
    EXPECT_EQ(projects[0]->integration(), local);
    EXPECT_FALSE(projects[0]->projectID().empty());
    EXPECT_EQ(projects[0]->subprojectID(), std::nullopt);
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), projects[0]);
    EXPECT_EQ(storedNames(), (std::vector<std::string>{"Alpha"}));

    // Read back as at the next start.
    ZVNorvoIntegration::resetSharedIntegration();
    auto reread = ZVNorvoIntegration::sharedIntegration();
    ASSERT_EQ(reread->availableProjects().size(), 1u);
    EXPECT_EQ(reread->availableProjects()[0]->projectID(), projects[0]->projectID());
    EXPECT_EQ(reread->availableProjects()[0]->integration(), reread);
}

TEST_F(NorvoIntegrationTests, EmptyOrTakenNamesAreRefusedWithTheirAlerts) {
    ui.answerTextPromptWith("Alpha");
    local->addProjectAction();

    struct Case {
        std::optional<std::string> typed;
        std::string refusal;  // empty: no second alert
        std::vector<std::string> namesAfter;
    };
    const Case cases[] = {
        {"", "The project name cannot be empty.", {"Alpha"}},
        {"Alpha", "A project with this name already exists.", {"Alpha"}},
        {std::nullopt, "", {"Alpha"}},  // cancelled
        {"alpha", "", {"Alpha", "alpha"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed.value_or("(cancel)"));
        ui.clearRecords();
        ui.answerTextPromptWith(c.typed);
        if (!c.refusal.empty()) ui.answerWith("OK");
        local->addProjectAction();
        EXPECT_EQ(ui.textPrompts().size(), 1u);
        if (c.refusal.empty()) {
            EXPECT_TRUE(ui.alerts().empty());
        } else {
            ASSERT_EQ(ui.alerts().size(), 1u);
            EXPECT_EQ(ui.alerts()[0].messageText, c.refusal);
            EXPECT_EQ(ui.alerts()[0].informativeText, "Please, choose a different name.");
            EXPECT_EQ(ui.alerts()[0].buttons, (std::vector<std::string>{"OK"}));
        }
        EXPECT_EQ(namesOf(local->availableProjects()), c.namesAfter);
    }
    EXPECT_EQ(ui.unusedAnswerCount(), 0u);
}

TEST_F(NorvoIntegrationTests, MovingReordersWithoutSaving) {
    for (const char* name : {"A", "B", "C"}) {
        ui.answerTextPromptWith(name);
        local->addProjectAction();
    }
    local->moveProjectAtIndex(0, 2);
    EXPECT_EQ(namesOf(local->availableProjects()), (std::vector<std::string>{"B", "C", "A"}));
    EXPECT_EQ(storedNames(), (std::vector<std::string>{"A", "B", "C"}));
    local->moveProjectAtIndex(2, 0);
    local->moveProjectAtIndex(7, 0);
    EXPECT_EQ(namesOf(local->availableProjects()), (std::vector<std::string>{"A", "B", "C"}));
    local->save();
    EXPECT_EQ(storedNames(), (std::vector<std::string>{"A", "B", "C"}));
}

TEST_F(NorvoIntegrationTests, MenuHasRemoveAlternatesAndLocalUtilityItemsOnly) {
    RecordingTarget target;
    auto empty = local->integrationMenu(&target, nullptr, true);
    ASSERT_EQ(empty->size(), 4u);
    EXPECT_EQ(empty->items[0]->title, "No Projects");
    EXPECT_FALSE(empty->items[0]->isEnabled());
    EXPECT_TRUE(empty->items[1]->isSeparator);
    EXPECT_EQ(empty->items[2]->title, "Add Project...");
    EXPECT_EQ(empty->items[3]->title, "Manage Projects...");
    EXPECT_EQ(empty->itemWithTitle("Synchronize Now"), nullptr);
    EXPECT_EQ(empty->itemWithTitle("Post All Times"), nullptr);
    empty->items[3]->perform();
    EXPECT_EQ(target.actions, std::vector<std::string>{"manageNorvoProjects:"});

    ui.answerTextPromptWith("Beta");
    empty->items[2]->perform();  // "Add Project..."
    auto beta = local->availableProjects().at(0);
    beta->setTimeWithoutSaving(40);

    auto menu = local->integrationMenu(&target, beta, true);
    ASSERT_GE(menu->size(), 2u);
    EXPECT_EQ(menu->items[0]->state, ZVMenuItem::State::on);
    EXPECT_EQ(menu->items[1]->title, "Remove 'Beta'...");
    EXPECT_TRUE(menu->items[1]->isAlternate);
    EXPECT_EQ(menu->items[1]->action, "_removeProject:");
    EXPECT_EQ(menu->itemWithTitle("Post time for 'Beta'"), nullptr);

    auto plain = local->integrationMenu(&target, beta);
    EXPECT_EQ(plain->size(), 1u);
}

TEST_F(NorvoIntegrationTests, RemoveItemAsksThenClearsTheCurrentProjectWhichRemovingThroughTheAccountLeaves) {
    ui.answerTextPromptWith("Alpha");
    local->addProjectAction();
    auto alpha = local->availableProjects().at(0);
    local->removeProject(alpha);
    EXPECT_TRUE(local->availableProjects().empty());
    EXPECT_TRUE(storedNames().empty());
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), alpha);

    ui.answerTextPromptWith("Gamma");
    local->addProjectAction();
    auto gamma = local->availableProjects().at(0);
    ASSERT_EQ(ZVIntegrationCenter::shared().currentProject(), gamma);
    auto menu = local->integrationMenu(nullptr, nullptr, true);
    ZVMenuItem* remove = menu->itemWithTitle("Remove 'Gamma'...");
    ASSERT_NE(remove, nullptr);

    ui.answerWith("Cancel");
    remove->perform();
    EXPECT_EQ(ui.alerts().back().messageText, "Do you really want to remove the project 'Gamma'?");
    EXPECT_EQ(ui.alerts().back().informativeText,
              "This action cannot be undone. The time associated with this project will be lost as well.");
    EXPECT_EQ(local->availableProjects().size(), 1u);

    ui.answerWith("Remove");
    remove->perform();
    EXPECT_TRUE(local->availableProjects().empty());
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), nullptr);
    EXPECT_EQ(ZVHeartBeat::sharedHeartBeat().currentTime(), 0u);
}

}  // namespace
