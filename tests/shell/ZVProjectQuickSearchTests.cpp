#include <QCoreApplication>
#include <QFocusEvent>
#include <QListView>
#include <QScreen>

#include "IgnoredCommands.h"
#include "ShellTestEnvironment.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "app/ZVMenuManager.h"
#include "app/ZVTimerViewController.h"
#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVProjectQuickSearch.h"

using namespace Qt::StringLiterals;

namespace {

/// The names of the projects joined by "|".
std::string names(const std::vector<ZVIntegrationProject::Pointer>& projects) {
    std::string result;
    for (const auto& project : projects) result += (result.empty() ? "" : "|") + project->name();
    return result;
}

class ZVProjectQuickSearchTest : public ShellFixture {
protected:
    ZVProjectQuickSearchTest() {
        jira = addAccount("Jira");
        website = addProject(jira, "Website");
        design = addProject(jira, "Design", website);
        build = addProject(jira, "Build", website);
        mobile = addProject(jira, "Mobile App");
        local = addProject(ZVNorvoIntegration::sharedIntegration(), "Website Notes");
        ZVMenuManager::shared().setCommands(&commands);
    }
    ~ZVProjectQuickSearchTest() override { ZVMenuManager::shared().setCommands(nullptr); }

    IgnoredCommands commands;

    std::shared_ptr<ZVShellTestIntegration> jira;
    ZVIntegrationProject::Pointer website, design, build, mobile, local;
};

TEST(ZVProjectQuickSearchQuery, EverySpellingOfTheSeparatorBecomesTheArrow) {
    struct Case {
        const char* typed;
        const char* normalized;
    };
    const Case cases[] = {
        {"a > b", "a ➔ b"},   {"a >b", "a ➔ b"},      {"a> b", "a ➔ b"},  {"a>b", "a ➔ b"},
        {"a  > b", "a  ➔ b"}, {"a>b>c", "a ➔ b ➔ c"}, {"plain", "plain"}, {">", " ➔ "},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ZVProjectQuickSearch::normalizedQuery(c.typed), std::string(c.normalized)) << c.typed;
}

// Leaves are found by any part of their path, never their parents, ignoring
// case beyond ASCII; local leaves come after all remote results.
TEST_F(ZVProjectQuickSearchTest, FindsLeavesByAnyPartOfTheirPath) {
    addProject(addAccount("Later Account"), "Website Later");
    addProject(ZVNorvoIntegration::sharedIntegration(), "Équipe Öffentlich");
    // Two spaces before the separator stay two spaces.
    const std::pair<const char*, const char*> cases[] = {
        {"website", "Design|Build|Website Later|Website Notes"}, {"JIRA", "Design|Build|Mobile App"},
        {"uil", "Build"}, {"web", "Design|Build|Website Later|Website Notes"}, {"équipe ö", "Équipe Öffentlich"},
        {"website > b", "Build"}, {"website >b", "Build"}, {"website> b", "Build"}, {"website>b", "Build"},
        {"website  > b", ""},
    };
    for (const auto& [query, expected] : cases)
        EXPECT_EQ(names(ZVProjectQuickSearch::searchAllProjects(query)), expected) << query;
}

TEST_F(ZVProjectQuickSearchTest, ResultsListHasTwoLineRowsAndAWidthOfAtLeast220) {
    ZVTimerViewController panel(commands);
    ZVSearchFieldWithResults& field = *panel.searchField();
    field.setText(u"uil"_s);
    ASSERT_EQ(field.results().size(), 1);
    EXPECT_EQ(field.searchResultsWidth(), 220) << "short names still get 200 plus 20";
    QListView* list = field.resultsList();
    ASSERT_EQ(list->model()->rowCount(), 1);
    EXPECT_EQ(list->model()->index(0, 0).data(Qt::SizeHintRole).toSize(), QSize(220, 32));
    EXPECT_EQ(list->model()->index(0, 0).data(Qt::AccessibleTextRole).toString(), u"Build"_s);
    field.setText(u"nothing like this"_s);
    EXPECT_TRUE(field.results().isEmpty());
    EXPECT_EQ(field.searchResultsWidth(), 220) << "no hit leaves the width as it was";
    field.setSearchResultsWidth(100000);
    EXPECT_EQ(list->minimumWidth(), field.screen()->availableGeometry().width() / 3) << "a long path widens the window so far";
    field.setText(u"website>build"_s);
    ASSERT_EQ(field.results().size(), 1);
    field.chooseResult(0);
    EXPECT_EQ(ZVIntegrationCenter::shared().currentProject(), build);
}

TEST_F(ZVProjectQuickSearchTest, FindsTheTenMatchingTicketsAmongAHundredThousandLeaves) {
    auto big = addAccount("Big");
    // Built off the account and added at once: one save instead of thousands.
    auto all = ZVIntegrationProject::create("All Clients", "all");
    all->setIntegration(big);
    for (int p = 0; p < 100; ++p) {
        auto parent = ZVIntegrationProject::create("Client " + std::to_string(p), "c" + std::to_string(p));
        parent->setIntegration(big);
        all->addSubproject(parent);
        for (int t = 0; t < 1000; ++t) {
            auto ticket = ZVIntegrationProject::create("Ticket " + std::to_string(p * 1000 + t), std::to_string(t));
            ticket->setIntegration(big);
            parent->addSubproject(ticket);
        }
    }
    big->addProject(all);
    const auto results = ZVProjectQuickSearch::searchAllProjects("client 42 > ticket 4200");
    ASSERT_EQ(results.size(), 10u);  // tickets 42000 to 42009
    for (int index = 0; index < 10; ++index)
        EXPECT_EQ(results[static_cast<size_t>(index)]->name(), "Ticket " + std::to_string(42000 + index));
}

// The search as a plain walk: every leaf whose freshly built path holds the
// query, ignoring case, in the order of the accounts and their trees.
void collectLeaves(const ZVIntegrationProject::Pointer& project, const QString& query,
                   std::vector<ZVIntegrationProject::Pointer>& found) {
    if (project->hasSubprojects()) {
        for (const auto& child : project->subprojects()) collectLeaves(child, query, found);
        return;
    }
    if (QString::fromStdString(project->fullProjectPath()).toCaseFolded().contains(query)) found.push_back(project);
}

std::vector<ZVIntegrationProject::Pointer> walkedResults(const std::string& typed) {
    const QString query = QString::fromStdString(ZVProjectQuickSearch::normalizedQuery(typed)).toCaseFolded();
    auto integrations = ZVIntegrationCenter::shared().integrations();
    integrations.push_back(ZVNorvoIntegration::sharedIntegration());
    std::vector<ZVIntegrationProject::Pointer> found;
    for (const auto& integration : integrations)
        for (const auto& project : integration->availableProjects()) collectLeaves(project, query, found);
    return found;
}

// The index of paths must answer as a fresh walk would after every kind of
// change to the trees, also while a query is being typed a key at a time.
TEST_F(ZVProjectQuickSearchTest, AnswersAsAFreshWalkAfterEveryChangeOfTheTrees) {
    const std::vector<std::string> typing = {"w", "we", "web", "webs", "website", "website > d", "b", "bu", "notes"};
    const auto expectSameAsWalk = [&](const std::string& when) {
        for (const auto& query : typing)
            EXPECT_EQ(names(ZVProjectQuickSearch::searchAllProjects(query)), names(walkedResults(query)))
                << when << ", query \"" << query << "\"";
    };
    expectSameAsWalk("at first");
    build->setName("Deploy");
    expectSameAsWalk("after renaming a leaf");
    EXPECT_TRUE(ZVProjectQuickSearch::searchAllProjects("website > b").empty());
    addProject(jira, "Backend", mobile);  // a leaf becomes a branch
    expectSameAsWalk("after a leaf got a child");
    EXPECT_EQ(names(ZVProjectQuickSearch::searchAllProjects("mobile")), "Backend");
    website->removeSubproject(design);
    expectSameAsWalk("after removing a leaf");
    jira->setName("Tracker");
    expectSameAsWalk("after renaming the account");
    EXPECT_TRUE(ZVProjectQuickSearch::searchAllProjects("jira").empty());
    auto second = addAccount("Webshop");
    addProject(second, "Checkout");
    expectSameAsWalk("after adding an account");
    ZVIntegrationCenter::shared().removeIntegration(second);
    expectSameAsWalk("after removing an account");
    ZVNorvoIntegration::sharedIntegration()->removeProject(local);
    expectSameAsWalk("after removing a local project");
}

// Keystrokes over unchanged trees reuse the index; the field renews it when
// it gets the focus, so that the first key after a refresh finds it ready.
TEST_F(ZVProjectQuickSearchTest, TheIndexIsBuiltOnceForUnchangedTreesAndRenewedWhenTheFieldGetsTheFocus) {
    auto& index = ZVProjectSearchIndex::shared();
    ZVProjectQuickSearch::searchAllProjects("w");
    const std::size_t builds = index.buildCount();
    EXPECT_EQ(index.size(), 4u) << "Design, Build, Mobile App and the local Website Notes";
    for (const char* query : {"we", "web", "websit", "x", "build"}) ZVProjectQuickSearch::searchAllProjects(query);
    EXPECT_EQ(index.buildCount(), builds);
    design->setName("Layout");
    ZVProjectQuickSearch::searchAllProjects("layout");
    EXPECT_EQ(index.buildCount(), builds + 1);

    ZVTimerViewController panel(commands);
    ZVSearchFieldWithResults& field = *panel.searchField();
    build->setName("Deploy");  // a refresh renamed a leaf
    const std::size_t beforeFocus = index.buildCount();
    QFocusEvent focus(QEvent::FocusIn, Qt::OtherFocusReason);
    QCoreApplication::sendEvent(&field, &focus);
    EXPECT_EQ(index.buildCount(), beforeFocus + 1);
    field.setText(u"deploy"_s);
    EXPECT_EQ(index.buildCount(), beforeFocus + 1) << "the keystroke found the index ready";
    ASSERT_EQ(field.results().size(), 1);
}

}  // namespace
