// The database of a heavy user: 20 accounts, 100,000 nodes and 1,000,000
// log entries, saved and loaded the ways the program does it. The run
// prints each time and the resident memory after loading.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "BenchmarkHome.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"

namespace {

// NORVO_BENCH_ACCOUNTS makes a smaller database for a quick look.
const int accountCount = [] {
    const char* value = std::getenv("NORVO_BENCH_ACCOUNTS");
    return value && std::atoi(value) > 0 ? std::atoi(value) : 20;
}();
constexpr int projectsPerAccount = 50;
constexpr int tasksPerProject = 99;  // 50 × (1 + 99) = 5,000 nodes per account
constexpr int entriesPerNode = 10;   // 100,000 nodes × 10 = 1,000,000 entries

class DatabaseBenchmarkIntegration : public ZVIntegration {
public:
    std::string className() const override { return "Norvo.DatabaseBenchmarkIntegration"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.benchmark.database"; }
    std::string integrationName() const override { return "Benchmark"; }
    std::string basicSetupViewNibName() const override { return "AddressBased"; }
    std::string accountIdentifier() const override { return "benchmark-" + integrationID(); }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
    // Nothing is fetched: the benchmark is about the file.
    void synchronize() override {}
    void appendWithoutSaving(std::shared_ptr<ZVIntegrationProject> project) { _projects.push_back(std::move(project)); }
};


void addLog(const std::shared_ptr<ZVIntegrationProject>& project, int seed) {
    const ZVDate start{std::chrono::duration<double>(1.7e9 + seed * 3600.0)};
    for (int entry = 0; entry < entriesPerNode; ++entry) {
        auto logEntry = std::make_shared<ZVTimeLogEntry>(project);
        logEntry->setStartDate(start + std::chrono::duration<double>(entry * 600.0));
        logEntry->setStopDate(start + std::chrono::duration<double>(entry * 600.0 + 420.0));
        project->addLogEntry(logEntry);
    }
}

std::shared_ptr<DatabaseBenchmarkIntegration> makeAccount(int index) {
    auto account = ZVIntegration::makeNew<DatabaseBenchmarkIntegration>();
    account->setName("Account " + std::to_string(index));
    for (int p = 0; p < projectsPerAccount; ++p) {
        const std::string projectID = std::to_string(p);
        auto project = ZVIntegrationProject::create("Project " + projectID + " of account " + std::to_string(index),
                                                    projectID);
        project->setIntegration(account);
        project->setTimeWithoutSaving(static_cast<std::uint64_t>(p));
        addLog(project, p);
        std::vector<std::shared_ptr<ZVIntegrationProject>> tasks;
        for (int t = 0; t < tasksPerProject; ++t) {
            auto task = ZVIntegrationProject::create("Task " + std::to_string(t) + ": review the change set",
                                                     projectID, std::to_string(t));
            task->setIntegration(account);
            addLog(task, p * 100 + t);
            tasks.push_back(task);
        }
        project->addSubprojectsFromArray(tasks);
        account->appendWithoutSaving(project);
    }
    return account;
}

long residentMegabytes() {
    std::ifstream status("/proc/self/statm");
    long pages = 0, resident = 0;
    status >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE) / (1024 * 1024);
}

/// The home, the class and a centre holding the 20 accounts, made once.
struct Database {
    Database()
        : registration(ZVIntegrationClass::of<DatabaseBenchmarkIntegration>(
              "Norvo.DatabaseBenchmarkIntegration", "com.tesselwick.norvo.benchmark.database", "Benchmark")) {
        auto& center = ZVIntegrationCenter::shared();
        for (int index = 0; index < accountCount; ++index) center.addIntegration(makeAccount(index));
        center.save();
    }
    static Database& shared() {
        static Database database;
        return database;
    }
    std::uintmax_t fileSize() const { return std::filesystem::file_size(ZVIntegrationCenter::shared().saveURL()); }

    BenchmarkHome home;
    ZVIntegrationRegistry::ScopedTestClass registration;
};

// Quitting and the 5-minute autosave: every account writes itself.
void BM_SaveAllAccounts(benchmark::State& state) {
    auto& database = Database::shared();
    for (auto _ : state) ZVIntegrationCenter::shared().save();
    state.counters["file_MB"] = static_cast<double>(database.fileSize()) / 1e6;
}

// Stopping the timer or a refresh: one account writes itself into the file.
void BM_SaveOneAccount(benchmark::State& state) {
    Database::shared();
    auto account = ZVIntegrationCenter::shared().integrations().front();
    for (auto _ : state) account->save();
}

// Start-up: the centre reads the file and builds every account with its
// tree and log.
void BM_LoadAtStartUp(benchmark::State& state) {
    Database::shared();
    size_t nodes = 0;
    for (auto _ : state) {
        ZVIntegrationCenter::resetShared();
        auto& center = ZVIntegrationCenter::shared();
        state.PauseTiming();
        nodes = 0;
        for (const auto& account : center.integrations())
            for (const auto& project : account->availableProjects()) nodes += 1 + project->subprojects().size();
        state.ResumeTiming();
    }
    state.counters["accounts"] = static_cast<double>(ZVIntegrationCenter::shared().integrations().size());
    state.counters["nodes"] = static_cast<double>(nodes);
    state.counters["resident_MB"] = static_cast<double>(residentMegabytes());
}

}  // namespace

BENCHMARK(BM_SaveAllAccounts)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SaveOneAccount)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LoadAtStartUp)->Unit(benchmark::kMillisecond)->Iterations(3);
