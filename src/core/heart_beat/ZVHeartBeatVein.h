#pragma once

#include <string>

class ZVHeartBeat;

/// A listener of the heart beat: told the clock text at every tick and at
/// every start, stop, reset and change of time.
class ZVHeartBeatVein {
public:
    virtual ~ZVHeartBeatVein() = default;
    virtual void heartBeat(ZVHeartBeat& beat, const std::string& didUpdateTime) = 0;
};
