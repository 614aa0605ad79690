#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// What every fuzz target of the domain runs in: a throw-away home, no
/// network (the transport answers every request from the fuzzer's bytes),
/// an in-memory key store, alerts answered with their first button and
/// timers that never fire. Made once per process.
class FuzzEnvironment {
public:
    static void setUp();
    /// The status and body that the transport answers every request with.
    static void setReply(int statusCode, std::string body);
};
