// One database operation per process, so that each is measured from a fresh
// start: generating a seeded database, loading and saving it the ways the
// program does, and the bare parse and write of the same file by libplist
// and pugixml for comparison. Each command prints "name=value" lines that
// bench/run_all.py reads; peak memory is taken by the caller.
//
//   norvo_bench_db generate <file> <accounts> <nodes> <entries>
//   norvo_bench_db load <data-home>
//   norvo_bench_db save <data-home>
//   norvo_bench_db autosave <data-home>
//   norvo_bench_db kill-loss <data-home> <kills>
//   norvo_bench_db libplist-parse <file>
//   norvo_bench_db libplist-write <file> <output>
//   norvo_bench_db pugixml-parse <file>
//   norvo_bench_db csv-export <data-home> <output>

#include <plist/plist.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <thread>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "ZVCSVDocument.h"
#include "ZVPaths.h"
#include "ZVPreferences.h"
#include "ZVPropertyList.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVDatabaseJournal.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log/ZVLogController.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/ui/ZVUserInterface.h"

namespace {

double seconds(std::chrono::steady_clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

double processCPUSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void report(const std::string& name, double value) { std::cout << name << "=" << value << std::endl; }

/// The refresh that starts with the centre finds no connection and may say
/// so; nobody is there to answer.
class SilentUserInterface : public ZVUserInterface {
public:
    ZVAlertResponse runModal(const ZVAlert&) override { return {}; }
    std::optional<std::string> runModalWithTextField(const ZVAlert&, const std::string&, bool) override {
        return std::nullopt;
    }
    std::optional<std::size_t> runModalWithChoice(const ZVAlert&, const std::vector<std::string>&,
                                                  std::size_t) override {
        return std::nullopt;
    }
    void beep() override {}
    void showBanner(const std::string&, const std::string&) override {}
    bool openURL(const std::string&) override { return false; }
};

// A small deterministic generator: the same bytes on every machine.
struct Seeded {
    std::uint64_t state;
    std::uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    std::uint64_t below(std::uint64_t bound) { return next() % bound; }
};

const char* const titles[] = {
    "Review the change set",
    "Überprüfung des Formulars & der <Eingabe>",
    "Fix \"checkout\" when price > 100 & quantity < 1",
    "Réunion d'équipe — planning",
    "日本語のテスト",
    "Write tests for 'import'",
    "",
};

// One stored log entry; a few carry the old class names or none at all.
ZVValue logEntry(Seeded& random, double start, std::uint64_t index) {
    const std::uint64_t kind = random.below(1000);
    const ZVDate startDate{std::chrono::duration<double>(start)};
    const ZVDate stopDate{std::chrono::duration<double>(start + 60.0 + static_cast<double>(random.below(3600)))};
    if (kind < 10) return ZVDictionary{{"KDLogEntryClass", "Norvo.ZVResetLogEntry"},
                                       {"KDLogEntryText", "Reset time for 'Task'"},
                                       {"KDLogEntryDate", startDate}};
    if (kind < 20)
        return ZVDictionary{{"KDLogEntryClass", "Norvo.ZVTimeSetLogEntry"},
                            {"KDLogEntryText", "Changing time to 1:00:00 for 'Task'"},
                            {"KDLogEntryDate", startDate},
                            {"KDTimeSetLogEntryOriginalTime", static_cast<std::uint64_t>(index % 7200)},
                            {"KDTimeSetLogEntryNewTime", std::uint64_t{3600}}};
    ZVDictionary run{{"KDLogEntryText", titles[random.below(std::size(titles))]},
                     {"KDLogEntryStartDate", startDate},
                     {"KDLogEntryStopDate", stopDate}};
    if (kind < 30) return run;                                    // from before the class was stored
    run["KDLogEntryClass"] = kind < 40 ? "KDTimeLogEntry" : "Norvo.ZVTimeLogEntry";  // old prefix
    return run;
}

struct Generator {
    Seeded random{0x5eedbe7c4ull};
    std::uint64_t entriesLeft = 0;
    std::uint64_t nodesLeft = 0;
    double clock = 1.6e9;

    ZVValue node(const std::string& name, const std::vector<std::string>& identifiers, std::uint64_t entries,
                 ZVArray children) {
        ZVDictionary dictionary{{"KDIntegrationProjectName", name},
                                {"KDIntegrationProjectID", identifiers[0]},
                                {"KDIntegrationProjectTime", random.below(4) == 0 ? random.below(36000) : 0}};
        if (identifiers.size() > 1) dictionary["KDIntegrationSubprojectID"] = identifiers[1];
        if (identifiers.size() > 2) dictionary["KDIntegrationAdditionalID"] = identifiers[2];
        ZVArray log;
        log.reserve(entries);
        for (std::uint64_t i = 0; i < entries; ++i) {
            log.push_back(logEntry(random, clock, i));
            clock += 900;
        }
        dictionary["KDIntegrationProjectLog"] = std::move(log);
        dictionary["KDIntegrationProjectSubprojects"] = std::move(children);
        return dictionary;
    }

    // Entries per node: an even share, some nodes twice as busy, some idle.
    std::uint64_t entriesForNode() {
        if (nodesLeft == 0) return 0;
        const std::uint64_t share = entriesLeft / nodesLeft;
        std::uint64_t count = random.below(3) == 0 ? 0 : share + share / 2;
        if (nodesLeft == 1 || count > entriesLeft) count = entriesLeft;
        --nodesLeft;
        entriesLeft -= count;
        return count;
    }

    std::string title(const std::string& prefix, std::uint64_t number) {
        return prefix + " " + std::to_string(number) + ": " + titles[number % (std::size(titles) - 1)];
    }

    // Two levels (project, issue) as the issue trackers map them, or three
    // (project, task, subtask) as the project services do.
    ZVArray tree(std::uint64_t nodes, bool threeLevels) {
        ZVArray top;
        const std::uint64_t projects = std::max<std::uint64_t>(1, nodes / 100);
        const std::uint64_t perProject = nodes / projects - 1;
        std::uint64_t serial = 0;
        for (std::uint64_t p = 0; p < projects; ++p) {
            const std::string projectID = std::to_string(10000 + p);
            ZVArray children;
            if (threeLevels) {
                const std::uint64_t tasks = std::max<std::uint64_t>(1, perProject / 10);
                for (std::uint64_t t = 0; t < tasks && serial < nodes; ++t) {
                    const std::string taskID = std::to_string(t);
                    ZVArray subtasks;
                    for (std::uint64_t s = 0; s + 1 < perProject / tasks; ++s) {
                        ++serial;
                        subtasks.push_back(node(title("Subtask", serial), {projectID, taskID, std::to_string(s)},
                                                entriesForNode(), {}));
                    }
                    ++serial;
                    children.push_back(node(title("Task", serial), {projectID, taskID}, entriesForNode(),
                                            std::move(subtasks)));
                }
            } else {
                for (std::uint64_t i = 0; i < perProject; ++i) {
                    ++serial;
                    children.push_back(
                        node(title("ISSUE-" + std::to_string(serial), serial), {projectID, std::to_string(serial)},
                             entriesForNode(), {}));
                }
            }
            ++serial;
            top.push_back(node(title("Project", p), {projectID}, entriesForNode(), std::move(children)));
        }
        return top;
    }
};

int generate(const std::string& path, std::uint64_t accounts, std::uint64_t nodes, std::uint64_t entries) {
    static const char* const classes[] = {"Norvo.ZVJIRAIntegration", "Norvo.ZVGenericAddressBasedIntegration",
                                          "Norvo.ZVKashflowIntegration", "Norvo.ZVJIRAIntegration",
                                          "KDGenericAddressBasedIntegration"};
    Generator generator;
    generator.entriesLeft = entries;
    generator.nodesLeft = nodes;
    ZVDictionary root;
    for (std::uint64_t index = 0; index < accounts; ++index) {
        const std::string className = classes[index % std::size(classes)];
        auto type = ZVIntegrationRegistry::classNamed(ZVIntegrationRegistry::normalizedClassName(className));
        if (!type) {
            std::cerr << "no class " << className << "\n";
            return 1;
        }
        auto account = type->makeNew();
        account->setName("Account " + std::to_string(index) + " & <Kunden>");
        // An address-based account without an address is never written.
        if (auto* addressBased = dynamic_cast<ZVAddressBasedIntegration*>(account.get()))
            addressBased->setAddress("tracker" + std::to_string(index) + ".example.com");
        ZVDictionary dictionary = account->dictionaryRepresentation();
        dictionary["KDIntegrationClass"] = className;
        char identifier[64];
        std::snprintf(identifier, sizeof identifier, "0B5E%04llX-1D1E-4C0D-9A7B-%012llX",
                      static_cast<unsigned long long>(index), static_cast<unsigned long long>(index * 7919));
        dictionary["KDIntegrationUID"] = std::string(identifier);
        const std::uint64_t share = index + 1 == accounts ? generator.nodesLeft : nodes / accounts;
        dictionary["KDIntegrationCachedProjects"] = generator.tree(share, className.find("Generic") != std::string::npos);
        root[identifier] = std::move(dictionary);
    }
    std::map<std::string, const ZVValue*> values;
    for (const auto& [key, value] : root) values[key] = &value;
    ZVPropertyList::EntryRanges ranges;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (!ZVPropertyList::writeDictionaryFile(path, 0600, values, {}, ranges)) return 1;
    report("bytes", static_cast<double>(std::filesystem::file_size(path)));
    return 0;
}

// The program's own home: the database under <data-home>/com.tesselwick.norvo.
void useHome(const std::string& home) {
    for (const char* variable : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) {
        const std::string path = home + "/" + variable;
        std::filesystem::create_directories(path);
        setenv(variable, path.c_str(), 1);
    }
    // The refresh at start asks a closed loopback port and finds no connection.
    ZVPreferences::shared().setValue(std::string("http://127.0.0.1:9/"), "ZVConnectionProbeAddress");
    static SilentUserInterface ui;
    ZVUserInterface::install(&ui);
}

struct Counts {
    std::uint64_t nodes = 0, entries = 0;
    void add(const ZVIntegrationProject& project) {
        ++nodes;
        entries += project.logEntries().size();
        for (const auto& child : project.subprojects()) add(*child);
    }
};

ZVIntegrationCenter& loadCenter() {
    const auto started = std::chrono::steady_clock::now();
    auto& center = ZVIntegrationCenter::shared();
    report("load_s", seconds(std::chrono::steady_clock::now() - started));
    Counts counts;
    for (const auto& account : center.integrations())
        for (const auto& project : account->availableProjects()) counts.add(*project);
    report("accounts", static_cast<double>(center.integrations().size()));
    report("nodes", static_cast<double>(counts.nodes));
    report("entries", static_cast<double>(counts.entries));
    return center;
}

struct FileIdentity {
    ino_t inode = 0;
    timespec modified{};
    static FileIdentity of(const std::string& path) {
        struct stat status {};
        ::stat(path.c_str(), &status);
        return {status.st_ino, status.st_mtim};
    }
    bool operator==(const FileIdentity& other) const {
        return inode == other.inode && modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

std::uint64_t fileSize(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : static_cast<std::uint64_t>(size);
}

// One timed save on the main thread: wall time, CPU time, and the bytes that
// reached the disk once the journal's writer and a whole write it started
// have ended (the journal's growth, or the database's new size when it was
// written whole).
void timedSave(ZVIntegrationCenter& center, const std::string& name, const std::function<void()>& save) {
    // The journal's start (its header) is written once the centre stands.
    center.waitUntilSaved();
    const FileIdentity before = FileIdentity::of(center.saveURL());
    const std::uint64_t journalBefore = center.journal().size();
    const double cpuBefore = processCPUSeconds();
    const auto started = std::chrono::steady_clock::now();
    save();
    report(name + "_blocked_s", seconds(std::chrono::steady_clock::now() - started));
    report(name + "_cpu_s", processCPUSeconds() - cpuBefore);
    center.waitUntilSaved();
    const bool rewritten = !(FileIdentity::of(center.saveURL()) == before);
    const std::uint64_t journalAfter = center.journal().size();
    const std::uint64_t bytes = rewritten ? fileSize(center.saveURL()) + journalAfter
                                          : journalAfter - std::min(journalAfter, journalBefore);
    report(name + "_written", rewritten ? 1 : 0);
    report(name + "_bytes", static_cast<double>(bytes));
}

std::shared_ptr<ZVIntegrationProject> firstProject(const std::shared_ptr<ZVIntegration>& account) {
    return account->availableProjects().front();
}

int save(const std::string& home) {
    useHome(home);
    auto& center = loadCenter();
    // Quitting after every account changed: the whole file is written.
    for (const auto& account : center.integrations()) {
        auto project = firstProject(account);
        project->setTimeWithoutSaving(project->time() + 1);
    }
    timedSave(center, "save_all", [&] { center.saveBeforeQuitting(); });
    std::_Exit(0);
}

int autosave(const std::string& home) {
    useHome(home);
    auto& center = loadCenter();
    // Nothing changed since the start.
    timedSave(center, "unchanged", [&] { center.saveAll(); });
    // The autosave with the timer running on one project of one account:
    // its running seconds go into the project and the store, five times.
    auto project = firstProject(center.integrations().back());
    center.setCurrentProject(project);
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    for (int autosave = 0; autosave < 5; ++autosave) {
        heartBeat.setCurrentTime(heartBeat.currentTime() + 300);
        timedSave(center, "running_" + std::to_string(autosave), [&] { center.saveAll(); });
    }
    // A run stopped: its log entry and time, at once.
    auto run = std::make_shared<ZVTimeLogEntry>();
    run->setText("Benchmark run");
    project->addLogEntry(run);
    timedSave(center, "stop", [&] { project->setTime(project->time() + 60); });
    std::_Exit(0);
}

// Kills a process whose timer runs, at a random moment, and reads how much
// of the clock that it showed the next start finds.
int killLoss(const std::string& home, int kills) {
    useHome(home);
    std::mt19937 random(20261124);
    std::uniform_real_distribution<double> delay(0.5, 6.5);
    for (int kill = 0; kill < kills; ++kill) {
        int channel[2];
        if (::pipe(channel) != 0) return 1;
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(channel[0]);
            auto& center = ZVIntegrationCenter::shared();
            center.setCurrentProject(firstProject(center.integrations().back()));
            auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
            heartBeat.start();
            for (;;) {
                // What the clock shows, ten times a second.
                const std::uint64_t shown = heartBeat.currentTime();
                if (::write(channel[1], &shown, sizeof shown) != static_cast<ssize_t>(sizeof shown)) ::_exit(2);
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        }
        ::close(channel[1]);
        std::uint64_t shown = 0;
        if (::read(channel[0], &shown, sizeof shown) != static_cast<ssize_t>(sizeof shown)) return 1;
        std::this_thread::sleep_for(std::chrono::duration<double>(delay(random)));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        while (::read(channel[0], &shown, sizeof shown) == static_cast<ssize_t>(sizeof shown)) {
        }
        ::close(channel[0]);
        // The next start, as the program reads it.
        auto& center = ZVIntegrationCenter::shared();
        const std::uint64_t found = firstProject(center.integrations().back())->time();
        report("lost_s", static_cast<double>(shown) - static_cast<double>(found));
        ZVIntegrationCenter::resetShared();
        ZVHeartBeat::resetSharedHeartBeat();
    }
    std::_Exit(0);
}

int load(const std::string& home) {
    useHome(home);
    loadCenter();
    // What stays resident once the reading is over, beside the peak.
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:")) report("resident_after_load_mb", std::stod(line.substr(6)) / 1024);
    std::_Exit(0);
}

bool readWhole(const std::string& path, std::string& bytes) { return ZVPaths::readFile(path, bytes); }

int libplistParse(const std::string& path) {
    std::string bytes;
    if (!readWhole(path, bytes)) return 1;
    const auto started = std::chrono::steady_clock::now();
    plist_t root = nullptr;
    plist_from_xml(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    report("parse_s", seconds(std::chrono::steady_clock::now() - started));
    if (!root) return 1;
    std::_Exit(0);
}

int libplistWrite(const std::string& path, const std::string& output) {
    std::string bytes;
    if (!readWhole(path, bytes)) return 1;
    plist_t root = nullptr;
    plist_from_xml(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    bytes = std::string();
    if (!root) return 1;
    const auto started = std::chrono::steady_clock::now();
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    std::ofstream out(output, std::ios::binary);
    out.write(xml, length);
    out.close();
    report("write_s", seconds(std::chrono::steady_clock::now() - started));
    std::_Exit(0);
}

int pugixmlParse(const std::string& path) {
    std::string bytes;
    if (!readWhole(path, bytes)) return 1;
    const auto started = std::chrono::steady_clock::now();
    pugi::xml_document document;
    const auto result = document.load_buffer_inplace(bytes.data(), bytes.size());
    report("parse_s", seconds(std::chrono::steady_clock::now() - started));
    if (!result) return 1;
    std::_Exit(0);
}

// The log's CSV export over every run of every project, as the export
// writes a period's runs.
int csvExport(const std::string& home, const std::string& output) {
    useHome(home);
    auto& center = loadCenter();
    const auto started = std::chrono::steady_clock::now();
    // The runs of every project, gathered as the log gathers a period's.
    std::vector<std::shared_ptr<ZVLogEntry>> entries;
    std::uint64_t rows = 0;
    std::function<void(const ZVIntegrationProject&)> add = [&](const ZVIntegrationProject& project) {
        for (const auto& entry : project.logEntries()) {
            if (!dynamic_cast<const ZVTimeLogEntry*>(entry.get())) continue;
            entries.push_back(entry);
            ++rows;
        }
        for (const auto& child : project.subprojects()) add(*child);
    };
    for (const auto& account : center.integrations())
        for (const auto& project : account->availableProjects()) add(*project);
    // The log controller's own export: its text, written atomically.
    if (!ZVLogController::writeCSVFile(entries, output)) return 1;
    report("export_s", seconds(std::chrono::steady_clock::now() - started));
    report("rows", static_cast<double>(rows));
    std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    const auto command = args.empty() ? std::string() : args[0];
    std::cout.precision(6);
    if (command == "generate" && args.size() == 5)
        return generate(args[1], std::stoull(args[2]), std::stoull(args[3]), std::stoull(args[4]));
    if (command == "load" && args.size() == 2) return load(args[1]);
    if (command == "save" && args.size() == 2) return save(args[1]);
    if (command == "autosave" && args.size() == 2) return autosave(args[1]);
    if (command == "kill-loss" && args.size() == 3) return killLoss(args[1], std::stoi(args[2]));
    if (command == "libplist-parse" && args.size() == 2) return libplistParse(args[1]);
    if (command == "libplist-write" && args.size() == 3) return libplistWrite(args[1], args[2]);
    if (command == "pugixml-parse" && args.size() == 2) return pugixmlParse(args[1]);
    if (command == "csv-export" && args.size() == 3) return csvExport(args[1], args[2]);
    std::cerr << "usage: see the top of bench/tool/DatabaseTool.cpp\n";
    return 2;
}
