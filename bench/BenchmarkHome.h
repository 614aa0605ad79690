#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "ZVPreferences.h"

/// `full`, or a hundredth of it (at least 1) when NORVO_BENCH_TINY is set:
/// the smoke run of CI only checks that every benchmark still works.
inline int benchmarkScale(int full) {
    static const bool tiny = getenv("NORVO_BENCH_TINY") != nullptr;
    return tiny ? (full / 100 > 0 ? full / 100 : 1) : full;
}

/// A throw-away home for a benchmark's files, made before anything reads
/// them; the connection probe asks a closed loopback port.
struct BenchmarkHome {
    BenchmarkHome() {
        char pattern[] = "/tmp/norvo-bench-XXXXXX";
        root = mkdtemp(pattern);
        for (const char* variable : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) {
            const std::string path = root + "/" + variable;
            std::filesystem::create_directories(path);
            setenv(variable, path.c_str(), 1);
        }
        ZVPreferences::shared().setValue(std::string("http://127.0.0.1:9/"), "ZVConnectionProbeAddress");
    }
    ~BenchmarkHome() {
        std::error_code error;
        std::filesystem::remove_all(root, error);
    }
    std::string root;
};
