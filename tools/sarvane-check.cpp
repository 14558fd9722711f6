// sarvane-check DIR: checks a slice directory without changing it and prints what it finds, one finding a line.
// Exit status 0 when the slice is sound, 1 when a fault was found, 2 on wrong usage or a missing directory.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "SarIndexChecker.h"

namespace {

// Progress goes to a terminal only, and only for an index worth waiting on.
constexpr uint64_t kProgressFrom = 64 << 20;

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || std::strcmp(argv[1], "--help") == 0) {
        std::cerr << "usage: sarvane-check DIR\n";
        return 2;
    }
    if (!std::filesystem::is_directory(argv[1])) {
        std::cerr << "sarvane-check: " << argv[1] << " is not a directory\n";
        return 2;
    }
    Ostrel::SarCheckReport report;
    if (isatty(STDERR_FILENO))
        report.progress = [](uint64_t checked, uint64_t total) {
            if (total >= kProgressFrom)
                std::fprintf(stderr, "\r%3u%% of %llu MB", unsigned(total ? checked * 100 / total : 100),
                             static_cast<unsigned long long>(total >> 20));
        };
    const auto start = std::chrono::steady_clock::now();
    Ostrel::CheckSlice(argv[1], report);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (report.progress && report.bytesTotal >= kProgressFrom) std::fputc('\n', stderr);
    std::cout << report.ToString();
    const double megabytes = double(report.bytesTotal) / (1 << 20);
    std::cout << argv[1] << ": " << (report.Sound() ? "sound" : "damaged") << ", " << report.Faults() << " faults, "
              << report.findings.size() - report.Faults() << " notes; " << megabytes << " MB in " << seconds << " s ("
              << (seconds > 0 ? megabytes / seconds : 0) << " MB/s)\n";
    return report.Sound() ? 0 : 1;
}
