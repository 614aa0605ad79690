#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "ZVPreferences.h"
#include "ZVThreading.h"
#include "core/integrations/address_based/generic/ZVGenericAddressBasedIntegration.h"
#include "core/sync/ZVSynchronizationThread.h"
#include "services/kit/ServiceTestCase.h"

namespace {

/// The reference server of examples/generic-server, run with python3 on a
/// free loopback port for as long as the object lives.
class ReferenceServer {
public:
    ReferenceServer(const std::string& username, const std::string& password, const std::string& recordPath) {
        const std::string script =
            std::string(std::getenv("NORVO_SOURCE_ROOT")) + "/examples/generic-server/norvo_generic_server.py";
        int output[2];
        if (pipe(output) != 0) return;
        _pid = fork();
        if (_pid == 0) {
            dup2(output[1], STDOUT_FILENO);
            close(output[0]);
            close(output[1]);
            execlp("python3", "python3", script.c_str(), "--port", "0", "--quiet", "--username", username.c_str(),
                   "--password", password.c_str(), "--record", recordPath.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(output[1]);
        // The first line names the address: "Listening on http://127.0.0.1:<port>".
        std::string line;
        char c;
        while (read(output[0], &c, 1) == 1 && c != '\n') line += c;
        _output = output[0];
        const std::string prefix = "Listening on http://";
        if (line.starts_with(prefix)) _address = line.substr(prefix.size());
    }

    ~ReferenceServer() {
        if (_pid > 0) {
            kill(_pid, SIGTERM);
            waitpid(_pid, nullptr, 0);
        }
        if (_output >= 0) close(_output);
    }

    /// "127.0.0.1:<port>", empty when the server did not start.
    const std::string& address() const { return _address; }

private:
    pid_t _pid = -1;
    int _output = -1;
    std::string _address;
};

class GenericReferenceServerTests : public ServiceTestCase {};

TEST_F(GenericReferenceServerTests, SynchronizesTracksAndPostsToTheExampleServerWhichRefusesOtherCredentials) {
    const std::string recordPath = home.path() + "/posted.jsonl";
    ReferenceServer reference(credentials.username, credentials.password, recordPath);
    ASSERT_FALSE(reference.address().empty()) << "the example server did not start";
    // The refresh first asks the account's own server whether the computer
    // is online (no other host: there is no network here but loopback).
    ZVSynchronizationThread::setConnectionProbeOverride(std::nullopt);
    // A failed refresh then only logs; the checks below show the log.
    ZVPreferences::shared().setBoolean(true, ZVSynchronizationThread::silenceSyncErrorsKey);
    // This thread is the main thread; the refresh must run on another one.
    ASSERT_TRUE(ZVMainQueue::shared().isMainThread());
    auto account = makeAccountAt<ZVGenericAddressBasedIntegration>(reference.address());
    // The refresh runs on a thread of its own, as the resync timer starts it.
    std::thread([&] { account->synchronize(); }).join();
    const auto projects = account->availableProjects();
    ASSERT_EQ(projects.size(), 2u) << treeDescription(projects) << log.joined();
    EXPECT_EQ(treeDescription(projects),
              "Operations [ops|-|-]\n"
              "  On-call [ops|ops-1|-]\n"
              "Website relaunch [1|-|-]\n"
              "  Design review [1|11|-]\n"
              "  Content migration [1|12|-]\n");
    const auto task = projects[1]->subprojects().at(0);  // "Design review"
    addTimerRun(*task, 5400, "Checked the mock-ups (%@)");
    account->postTime(*task);
    std::ifstream record(recordPath);
    std::string line;
    ASSERT_TRUE(std::getline(record, line)) << "the server recorded no time";
    EXPECT_EQ(nlohmann::json::parse(line), nlohmann::json({{"project_id", "1"},
                                                           {"task_id", "11"},
                                                           {"description", "Checked the mock-ups (01:30:00)"},
                                                           {"hours", 1.5}}));

    credentials.password = "wrong";
    auto refused = makeAccountAt<ZVGenericAddressBasedIntegration>(reference.address());
    EXPECT_TRUE(throwsFailureReason([&] { refused->loadRemoteProjects(); },
                                    "Generic refused the credentials of the account “My Generic Account”. Check them "
                                    "in the account's settings."));
}

}  // namespace
