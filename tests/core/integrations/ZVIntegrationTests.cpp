#include <set>

#include "ZVPaths.h"
#include "ZVPropertyList.h"
#include "core/integrations/IntegrationTestFixture.h"
#include "core/integrations/authentication/ZVAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/log_entries/ZVTimeSetLogEntry.h"

namespace {

ZVDictionary storedAccount(const std::string& className) {
    return {{"KDIntegrationClass", className}, {"KDIntegrationName", "Stored"}, {"KDIntegrationUID", "uid-1"}};
}

class IntegrationTests : public IntegrationTestFixture {};

// Naming and identity.

TEST_F(IntegrationTests, NewAccountIsNamedAfterItsServiceWithAFreshUUID) {
    auto first = ZVIntegration::makeNew<ZVTestIntegration>();
    auto second = ZVIntegration::makeNew<ZVTestIntegration>();
    EXPECT_EQ(first->name(), "My Test Account");
    EXPECT_TRUE(isUUID(first->integrationID())) << first->integrationID();
    EXPECT_NE(first->integrationID(), second->integrationID());
    ASSERT_NE(first->authentication(), nullptr);
    EXPECT_EQ(first->authentication()->accountInformation(), "test-account");
}

TEST_F(IntegrationTests, StoredAccountWithoutOrWithWrongValuesIsUntitledWithANewUUIDEachTime) {
    const ZVDictionary bare{{"KDIntegrationClass", "Norvo.ZVTestIntegration"}};
    const ZVDictionary odd{{"KDIntegrationClass", "Norvo.ZVTestIntegration"},
                           {"KDIntegrationName", 7},
                           {"KDIntegrationUID", ZVArray{}},
                           {"KDIntegrationCachedProjects", "not a list"},
                           {"KDIntegrationAuthentication", "not a dictionary"}};
    for (const ZVDictionary& stored : {bare, odd}) {
        auto first = ZVIntegration::integrationWithDictionary(stored);
        auto second = ZVIntegration::integrationWithDictionary(stored);
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        EXPECT_EQ(first->name(), "Untitled");
        EXPECT_TRUE(isUUID(first->integrationID()));
        EXPECT_NE(first->integrationID(), second->integrationID());
        EXPECT_TRUE(first->availableProjects().empty());
        EXPECT_EQ(first->usernamePasswordAuthentication().username(), "");
    }
}

// Finding the class again.

TEST_F(IntegrationTests, StoredClassNamesAreReadWithTheirOldForms) {
    struct Case {
        ZVValue storedName;
        bool found;
    };
    const Case cases[] = {
        {"Norvo.ZVTestIntegration", true},
        {"KDTestIntegration", true},
        {"NSKVONotifying_Norvo.ZVTestIntegration", true},
        {"NSKVONotifying_KDTestIntegration", true},
        {"ZVTestIntegration", false},
        {"Norvo.ZVNoSuchIntegration", false},
        {"Norvo.ZVJIRAIntegrationX", false},
        {42, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.storedName.description());
        ZVDictionary dictionary = storedAccount("");
        dictionary["KDIntegrationClass"] = c.storedName;
        auto account = ZVIntegration::integrationWithDictionary(dictionary);
        EXPECT_EQ(account != nullptr, c.found);
        if (account) {
            EXPECT_EQ(account->className(), "Norvo.ZVTestIntegration");
            EXPECT_EQ(account->integrationID(), "uid-1");
            EXPECT_EQ(account->name(), "Stored");
        }
    }
    ZVDictionary withoutClass = storedAccount("");
    withoutClass.erase("KDIntegrationClass");
    EXPECT_EQ(ZVIntegration::integrationWithDictionary(withoutClass), nullptr);
}

TEST(IntegrationClassNames, OldPrefixesAreExchanged) {
    EXPECT_EQ(ZVIntegrationRegistry::normalizedClassName("KDJIRAIntegration"), "Norvo.ZVJIRAIntegration");
    EXPECT_EQ(ZVIntegrationRegistry::normalizedClassName("NSKVONotifying_Norvo.ZVJIRAIntegration"),
              "Norvo.ZVJIRAIntegration");
    EXPECT_EQ(ZVIntegrationRegistry::normalizedClassName("NSKVONotifying_KDRedmineIntegration"),
              "Norvo.ZVRedmineIntegration");
    EXPECT_EQ(ZVIntegrationRegistry::normalizedClassName("Norvo.ZVKDIntegration"), "Norvo.ZVKDIntegration");
    EXPECT_EQ(ZVIntegrationRegistry::normalizedClassName("xNSKVONotifying_KDA"), "xNSKVONotifying_KDA");
}

// Trees in the dictionary form.

TEST_F(IntegrationTests, RoundTripKeepsTheTreeAndGivesEveryNodeItsAccount) {
    auto account = ZVIntegration::makeNew<ZVTestIntegration>();
    account->setName("Work");
    auto client = makeNode("Client", "c1");
    auto project = makeNode("Project", "c1", 0, "p1");
    auto task = makeNode("Task", "c1", 125, "p1");
    task->setAdditionalID("t1");
    task->setFourthID("f1");
    auto run = std::make_shared<ZVTimeLogEntry>();
    run->setText("Work");
    run->setStopDate(clock.now());
    task->addLogEntry(run);
    auto timeSet = std::make_shared<ZVTimeSetLogEntry>(task);
    timeSet->setNewTime(60);
    task->addLogEntry(timeSet);
    project->addSubproject(task);
    client->addSubproject(project);
    account->addProject(client);
    account->addProject(makeNode("Solo", "s1", 30));
    account->usernamePasswordAuthentication().setUsername("ada");

    const ZVDictionary dictionary = account->dictionaryRepresentation();
    EXPECT_EQ(dictionary.at("KDIntegrationClass"), ZVValue("Norvo.ZVTestIntegration"));
    EXPECT_EQ(dictionary.at("KDIntegrationAuthentication"), ZVValue(ZVDictionary{{"KDAuthenticationUsername", "ada"}}));
    // A node without a sub-identifier writes none, and no node is marked as selected.
    const ZVDictionary& storedClient = *dictionary.at("KDIntegrationCachedProjects").array()->at(0).dictionary();
    EXPECT_FALSE(storedClient.contains("KDIntegrationSubprojectID"));
    EXPECT_FALSE(storedClient.contains("KDIntegrationProjectIsSelected"));

    auto read = ZVIntegration::integrationWithDictionary(dictionary);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->dictionaryRepresentation(), dictionary);
    EXPECT_EQ(read->name(), "Work");
    EXPECT_EQ(read->integrationID(), account->integrationID());

    const auto projects = read->availableProjects();
    ASSERT_EQ(projects.size(), 2u);
    const auto& readTask = projects[0]->subprojects().at(0)->subprojects().at(0);
    EXPECT_EQ(readTask->name(), "Task");
    EXPECT_EQ(readTask->time(), 125u);
    EXPECT_EQ(readTask->additionalID(), "t1");
    EXPECT_EQ(readTask->fourthID(), "f1");
    EXPECT_EQ(readTask->parentProject(), projects[0]->subprojects()[0]);
    ASSERT_EQ(readTask->logEntries().size(), 2u);
    EXPECT_EQ(readTask->logEntries()[0]->project(), readTask);
    EXPECT_EQ(readTask->logEntries()[1]->text(), timeSet->text());
    for (const auto& node : {projects[0], projects[0]->subprojects()[0], readTask, projects[1]})
        EXPECT_EQ(node->integration(), read) << node->name();
    EXPECT_EQ(read->usernamePasswordAuthentication().username(), "ada");
}

TEST_F(IntegrationTests, AccountWithoutCredentialsWritesNoAuthenticationKey) {
    class Keyless : public ZVTestIntegration {
    public:
        ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::other; }
    };
    auto account = ZVIntegration::makeNew<Keyless>();
    EXPECT_EQ(account->authentication(), nullptr);
    EXPECT_FALSE(account->dictionaryRepresentation().contains("KDIntegrationAuthentication"));
}

// Time on the tree.

TEST_F(IntegrationTests, ProjectsWithNonZeroTimeAreLeavesWithTime) {
    auto account = ZVIntegration::makeNew<ZVTestIntegration>();
    auto parent = makeNode("Parent", "1", 500);
    parent->addSubproject(makeNode("Child", "1", 0, "a"));
    account->addProject(parent);
    EXPECT_TRUE(account->projectsWithNonZeroTime().empty());
    EXPECT_TRUE(account->containsProjectWithUnpostedTime());  // the parent's own time still counts here

    auto second = makeNode("Second", "2");
    auto timed = makeNode("Timed", "2", 60, "b");
    auto deep = makeNode("Deep", "2", 0, "c");
    auto deeper = makeNode("Deeper", "2", 7, "c");
    deeper->setAdditionalID("d");
    deep->addSubproject(deeper);
    second->addSubproject(timed);
    second->addSubproject(deep);
    account->addProject(second);
    account->addProject(makeNode("Leaf", "3", 1));
    account->addProject(makeNode("Idle", "4"));

    EXPECT_EQ(namesOf(account->projectsWithNonZeroTime()), (std::vector<std::string>{"Timed", "Deeper", "Leaf"}));

    // Unposted time is found at any depth.
    auto other = ZVIntegration::makeNew<ZVTestIntegration>();
    auto top = makeNode("Top", "1");
    auto middle = makeNode("Middle", "1", 0, "m");
    top->addSubproject(middle);
    other->addProject(top);
    EXPECT_FALSE(other->containsProjectWithUnpostedTime());
    middle->addSubproject(makeNode("Bottom", "1", 3, "b"));
    EXPECT_TRUE(other->containsProjectWithUnpostedTime());
}

// Adding and removing nodes.

TEST_F(IntegrationTests, AddingAndRemovingProjectsNotifiesAndSaves) {
    auto account = addedAccount();
    int notifications = 0;
    auto token = ZVNotificationCenter::shared().addObserver(
        ZVIntegrationAvailableProjectsDidChange, [&](const ZVNotification& notification) {
            EXPECT_EQ(notification.objectAs<ZVIntegration>(), account);
            ++notifications;
        });
    const auto storedProjectCount = [&] {
        const ZVDictionary stored = ZVIntegrationCenter::shared().readIntegrationsFromDisk();
        return stored.at(account->integrationID())["KDIntegrationCachedProjects"].array()->size();
    };
    auto project = makeNode("Kept", "1");
    account->addProject(project);
    EXPECT_EQ(notifications, 1);
    EXPECT_EQ(storedProjectCount(), 1u);

    account->removeProject(makeNode("Kept", "1"));  // equal identifiers, another object
    EXPECT_EQ(notifications, 1);
    EXPECT_EQ(account->availableProjects().size(), 1u);

    account->removeProject(project);
    EXPECT_EQ(notifications, 2);
    EXPECT_TRUE(account->availableProjects().empty());
    EXPECT_EQ(storedProjectCount(), 0u);
    ZVNotificationCenter::shared().removeObserver(token);
}

// Saving.

TEST_F(IntegrationTests, SaveWritesOnlyAccountsThatTheCentreHolds) {
    auto stranger = ZVIntegration::makeNew<ZVTestIntegration>();
    stranger->usernamePasswordAuthentication().setUsername("ada");
    stranger->usernamePasswordAuthentication().setPassword("s3cret");
    stranger->save();
    EXPECT_TRUE(ZVIntegrationCenter::shared().readIntegrationsFromDisk().empty());
    EXPECT_EQ(keychain.itemCount(), 0u);

    auto held = addedAccount();
    held->usernamePasswordAuthentication().setUsername("ada");
    held->usernamePasswordAuthentication().setPassword("s3cret");
    held->save();
    const ZVDictionary stored = ZVIntegrationCenter::shared().readIntegrationsFromDisk();
    ASSERT_TRUE(stored.contains(held->integrationID()));
    EXPECT_EQ(stored.at(held->integrationID()).dictionary()->at("KDIntegrationName"), ZVValue("My Test Account"));
    EXPECT_EQ(keychain.password("ada", "test-account"), "s3cret");

    // Secrets stay out of the journal and of the file.
    ZVIntegrationCenter::shared().waitUntilSaved();
    std::string bytes;
    ASSERT_TRUE(ZVPaths::readFile(ZVIntegrationCenter::shared().saveURL() + ".journal", bytes));
    EXPECT_EQ(bytes.find("s3cret"), std::string::npos);
    ZVIntegrationCenter::shared().saveBeforeQuitting();
    ASSERT_TRUE(ZVPaths::readFile(ZVIntegrationCenter::shared().saveURL(), bytes));
    EXPECT_EQ(bytes.find("s3cret"), std::string::npos);
}

TEST_F(IntegrationTests, SavingAfterAnAddressChangeMovesTheSecretAndLeavesTheOldItem) {
    auto account = ZVIntegration::makeNew<ZVTestAddressBasedIntegration>();
    account->setAddress("old.example.com");
    account->usernamePasswordAuthentication().setUsername("ada");
    account->usernamePasswordAuthentication().setPassword("s3cret");
    ZVIntegrationCenter::shared().addIntegration(account);
    EXPECT_EQ(keychain.password("ada", "old.example.com"), "s3cret");

    account->setAddress("https://new.example.com/");
    account->save();
    EXPECT_EQ(account->authentication()->accountInformation(), "new.example.com");
    EXPECT_EQ(keychain.password("ada", "new.example.com"), "s3cret");
    EXPECT_EQ(keychain.password("ada", "old.example.com"), "s3cret");
}

// Credentials.

TEST_F(IntegrationTests, TokenAccessorAlsoAcceptsTheUserNameVariant) {
    class UserToken : public ZVTestIntegration {
    public:
        ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::usernameAPIToken; }
    };
    auto account = ZVIntegration::makeNew<UserToken>();
    account->APITokenAuthentication().setAPIToken("t0ken");
    EXPECT_EQ(account->usernameAPITokenAuthentication().APIToken(), "t0ken");
    EXPECT_EQ(account->usernameAPITokenAuthentication().usernameLabel(), "Username");
}

TEST_F(IntegrationTests, MissingBehavioursAndWrongCredentialAccessorsAreProgrammingErrors) {
    class Bare : public ZVIntegration {
    public:
        std::string className() const override { return "Norvo.ZVBareIntegration"; }
    };
    auto bare = std::make_shared<Bare>();
    EXPECT_DEATH(bare->loadRemoteProjects(), "loadRemoteProjects\\(\\)");
    auto project = makeNode("P", "1");
    EXPECT_DEATH(bare->postTime(*project), "postTime\\(for:\\)");
    EXPECT_DEATH(bare->integrationName(), "integrationName");
    EXPECT_DEATH(bare->accountIdentifier(), "accountIdentifier");
    // So is asking an account for a credential of another kind.
    EXPECT_DEATH(ZVIntegration::makeNew<ZVTestIntegration>()->APITokenAuthentication(), "APITokenAuthentication");
}

}  // namespace
