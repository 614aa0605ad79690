#include "app/ZVTerminationSignals.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <string>

#include "ZVLog.h"

namespace {

int signalPipe[2] = {-1, -1};
constexpr int handledSignals[] = {SIGTERM, SIGHUP, SIGINT};

extern "C" void writeSignalNumber(int number) {
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(number);
    // A full pipe already holds a request; this one may go.
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
    errno = saved;
}

}  // namespace

ZVTerminationSignals::ZVTerminationSignals(QObject* parent) : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, signalPipe) != 0) {
        ZVLog([] { return std::string("No pipe for the termination signals; they end Norvo without saving"); });
        return;
    }
    _notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
    connect(_notifier, &QSocketNotifier::activated, this, &ZVTerminationSignals::_readSignal);
    struct sigaction action {};
    action.sa_handler = writeSignalNumber;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : handledSignals) ::sigaction(number, &action, nullptr);
}

ZVTerminationSignals::~ZVTerminationSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int number : handledSignals) ::sigaction(number, &action, nullptr);
    for (int& end : signalPipe) {
        if (end >= 0) ::close(end);
        end = -1;
    }
}

void ZVTerminationSignals::_readSignal() {
    unsigned char byte = 0;
    int last = 0;
    while (::read(signalPipe[0], &byte, 1) == 1) last = byte;
    if (last == 0) return;
    ZVLog([last] { return "Quitting on signal " + std::to_string(last); });
    Q_EMIT terminationRequested(last);
}
