// Merging a fetched tree of N nodes into a local tree of N nodes, as a
// refresh of a large account does. The target: 100,000 into 100,000 well
// under a second.

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "BenchmarkHome.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/sync/ZVIntegrationSyncHelper.h"

namespace {

class BenchmarkIntegration : public ZVIntegration {
public:
    std::string className() const override { return "Norvo.BenchmarkIntegration"; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.benchmark"; }
    std::string integrationName() const override { return "Benchmark"; }
    std::string basicSetupViewNibName() const override { return "AddressBased"; }
    std::string accountIdentifier() const override { return "benchmark"; }
};

// `parents` projects with `childrenPerParent` tasks each; every node of the
// fetched tree has a local twin (renamed), so that all of them match and
// nothing is asked about.
ZVIntegrationSyncHelper::ProjectList makeTree(const std::shared_ptr<ZVIntegration>& integration, int parents,
                                              int childrenPerParent, const std::string& prefix) {
    ZVIntegrationSyncHelper::ProjectList projects;
    projects.reserve(static_cast<size_t>(parents));
    for (int parentIndex = 0; parentIndex < parents; ++parentIndex) {
        const std::string projectID = std::to_string(parentIndex);
        auto parent = ZVIntegrationProject::create(prefix + projectID, projectID);
        parent->setIntegration(integration);
        ZVIntegrationSyncHelper::ProjectList children;
        for (int childIndex = 0; childIndex < childrenPerParent; ++childIndex) {
            auto child = ZVIntegrationProject::create(prefix + "task", projectID, std::to_string(childIndex));
            child->setIntegration(integration);
            children.push_back(child);
        }
        parent->addSubprojectsFromArray(children);
        projects.push_back(parent);
    }
    return projects;
}

using FetchedTree = std::function<ZVIntegrationSyncHelper::ProjectList(const std::shared_ptr<ZVIntegration>&)>;

// Merges what `fetch` makes into a local tree of `parents` × (1 + `childrenPerParent`).
void mergeTrees(benchmark::State& state, int parents, int childrenPerParent, const FetchedTree& fetch) {
    auto integration = ZVIntegration::makeNew<BenchmarkIntegration>();
    for (auto _ : state) {
        state.PauseTiming();
        auto local = makeTree(integration, parents, childrenPerParent, "local ");
        auto remote = fetch(integration);
        state.ResumeTiming();
        ZVIntegrationSyncHelper helper(integration);
        helper.mergeProjects(local, nullptr, remote);
        benchmark::DoNotOptimize(local.data());
        state.PauseTiming();
        local.clear();
        remote.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * parents * (childrenPerParent + 1));
}

// A refresh as it happens: every node renamed, one task in 20 gone from the
// service (without time, so it goes without a question) and as many new.
ZVIntegrationSyncHelper::ProjectList makeFetchedTree(const std::shared_ptr<ZVIntegration>& integration, int parents,
                                                     int childrenPerParent) {
    ZVIntegrationSyncHelper::ProjectList projects;
    for (int parentIndex = 0; parentIndex < parents; ++parentIndex) {
        const std::string projectID = std::to_string(parentIndex);
        auto parent = ZVIntegrationProject::create("renamed " + projectID, projectID);
        parent->setIntegration(integration);
        ZVIntegrationSyncHelper::ProjectList children;
        for (int childIndex = 0; childIndex < childrenPerParent; ++childIndex) {
            // Vanished ones are left out, new ones get identifiers beyond the old.
            const int identifier = childIndex % 20 == 7 ? childrenPerParent + childIndex : childIndex;
            auto child = ZVIntegrationProject::create("renamed task", projectID, std::to_string(identifier));
            child->setIntegration(integration);
            children.push_back(child);
        }
        parent->addSubprojectsFromArray(children);
        projects.push_back(parent);
    }
    return projects;
}

void BM_MergeRefresh100000Into100000(benchmark::State& state) {
    const int parents = benchmarkScale(1000);
    mergeTrees(state, parents, 99, [parents](const auto& integration) { return makeFetchedTree(integration, parents, 99); });
}

// Every node of the fetched tree has a local twin (renamed).
void mergeTwins(benchmark::State& state, int parents, int childrenPerParent) {
    mergeTrees(state, parents, childrenPerParent, [=](const auto& integration) {
        return makeTree(integration, parents, childrenPerParent, "remote ");
    });
}

void BM_MergeFlat100000Into100000(benchmark::State& state) { mergeTwins(state, benchmarkScale(100000), 0); }
void BM_MergeTree100000Into100000(benchmark::State& state) { mergeTwins(state, benchmarkScale(1000), 99); }

}  // namespace

BENCHMARK(BM_MergeFlat100000Into100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MergeTree100000Into100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MergeRefresh100000Into100000)->Unit(benchmark::kMillisecond);
