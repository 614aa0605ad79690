// The shell's two costs that grow with the size of the accounts: one
// keystroke of the quick search over 100,000 leaves (target: under 10 ms)
// and opening the status menu with 10,000 nodes (target: under 100 ms).
// Runs on Qt's offscreen platform unless another one is chosen.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <QApplication>
#include <QMenu>
#include <algorithm>
#include <chrono>
#include <vector>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "../BenchmarkHome.h"
#include "IgnoredCommands.h"
#include "ZVPreferences.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "app/ZVMenuManager.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVMenuRenderer.h"
#include "ui_elements/ZVProjectQuickSearch.h"

namespace {

class ShellBenchmarkIntegration : public ZVIntegration {
public:
    std::string className() const override { return "Norvo.ShellBenchmarkIntegration"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.benchmark.shell"; }
    std::string integrationName() const override { return "Benchmark"; }
    std::string basicSetupViewNibName() const override { return "AddressBased"; }
    std::string accountIdentifier() const override { return "benchmark-" + integrationID(); }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
    void synchronize() override {}
    void save() override {}
    void setProjectsWithoutSaving(ProjectList projects) { _projects = std::move(projects); }
};


/// An account of `clients` clients with `tickets` tickets each, held by the centre.
std::shared_ptr<ShellBenchmarkIntegration> addAccount(const std::string& name, int clients, int tickets) {
    auto account = ZVIntegration::makeNew<ShellBenchmarkIntegration>();
    account->setName(name);
    ZVIntegration::ProjectList top;
    for (int c = 0; c < clients; ++c) {
        auto client = ZVIntegrationProject::create("Client " + std::to_string(c), "c" + std::to_string(c));
        client->setIntegration(account);
        ZVIntegrationProject::List children;
        for (int t = 0; t < tickets; ++t) {
            auto ticket = ZVIntegrationProject::create("Ticket " + std::to_string(c * tickets + t) +
                                                           " Update the invoice template",
                                                       client->projectID(), std::to_string(t));
            ticket->setIntegration(account);
            children.push_back(ticket);
        }
        client->addSubprojectsFromArray(children);
        top.push_back(client);
    }
    account->setProjectsWithoutSaving(std::move(top));
    ZVIntegrationCenter::shared().addIntegration(account);
    return account;
}

/// A throw-away home, a QApplication and the commands, made once.
struct Shell {
    Shell() {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        static int argc = 1;
        static char name[] = "norvo_shell_bench";
        static char* argv[] = {name, nullptr};
        application = std::make_unique<QApplication>(argc, argv);
        ZVMenuManager::shared().setCommands(&commands);
    }
    static Shell& shared() {
        static Shell shell;
        return shell;
    }
    BenchmarkHome home;
    std::unique_ptr<QApplication> application;
    IgnoredCommands commands;
};

// Typing "client 42 > ticket 4200" into the quick search over 100,000
// leaves: each keystroke searches every path again.
void BM_QuickSearchKeystroke(benchmark::State& state) {
    Shell::shared();
    static auto account = addAccount("Tickets", benchmarkScale(100), benchmarkScale(1000));
    const std::string typed = "client 42 > ticket 4200";
    size_t keystroke = 0;
    size_t found = 0;
    for (auto _ : state) {
        const std::string query = typed.substr(0, keystroke % typed.size() + 1);
        found = ZVProjectQuickSearch::searchAllProjects(query).size();
        benchmark::DoNotOptimize(found);
        ++keystroke;
    }
    state.counters["leaves"] = 100000;
    state.counters["last_results"] = static_cast<double>(found);
}

// Twenty queries of the kinds people type, a key at a time: the median and
// the worst of all keystrokes (the worst is what a user feels).
void BM_QuickSearchTyping(benchmark::State& state) {
    Shell::shared();
    static auto account = addAccount("Tickets", benchmarkScale(100), benchmarkScale(1000));
    static const char* const queries[] = {
        "ticket 4200",   "client 42",       "invoice",       "update the",     "client 7 > ticket 77",
        "99999",         "template",        "cli 1 tick 12", "tickets",        "update invoice template",
        "client 99",     "ticket 1",        "xyz",           "Ticket 50000 U", "client 0 > ticket 0",
        "inv temp",      "client 5 ticket", "42",            "the invoice",    "client 12 > ticket 12345"};
    std::vector<double> keystrokes;
    // As the search field does when it gets the focus: the index of the
    // freshly added account is built before the first key.
    ZVProjectQuickSearch::prepareAllProjects();
    for (auto _ : state) {
        keystrokes.clear();
        for (const std::string query : queries) {
            for (size_t length = 1; length <= query.size(); ++length) {
                const auto started = std::chrono::steady_clock::now();
                const auto found = ZVProjectQuickSearch::searchAllProjects(query.substr(0, length));
                benchmark::DoNotOptimize(found.size());
                keystrokes.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count());
            }
        }
    }
    std::sort(keystrokes.begin(), keystrokes.end());
    state.counters["keystrokes"] = static_cast<double>(keystrokes.size());
    state.counters["median_ms"] = keystrokes[keystrokes.size() / 2];
    state.counters["worst_ms"] = keystrokes.back();
}

// Opening the status menu: the menu model of every account is built and
// turned into Qt menus. 10,000 nodes: 100 clients of 99 tickets.
void BM_OpenStatusMenu(benchmark::State& state) {
    Shell::shared();
    static auto account = addAccount("Menu", benchmarkScale(100), 99);
    int topLevelActions = 0;
    for (auto _ : state) {
        QMenu menu;
        ZVMenuRenderer::fill(menu, ZVMenuManager::shared().applicationMenu({true, true, true, true}));
        topLevelActions = static_cast<int>(menu.actions().size());
        benchmark::DoNotOptimize(topLevelActions);
    }
    state.counters["top_level_items"] = topLevelActions;
}

}  // namespace

BENCHMARK(BM_QuickSearchKeystroke)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuickSearchTyping)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_OpenStatusMenu)->Unit(benchmark::kMillisecond);
