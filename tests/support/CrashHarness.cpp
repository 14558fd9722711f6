#include "CrashHarness.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <sstream>

#include "TempDir.h"
#include "core/Exception.h"

namespace SarvaneTest {

namespace {

constexpr int kDied = 86;    // the child stopped where it was told to
constexpr int kThrew = 87;   // the protocol raised before the crash point
constexpr int kReturned = 0;  // the protocol returned (and in the power modes the power failed after it)

// Runs `body` in a child process that ends with _exit; returns the child's exit code, or -signal.
int InChild(const std::function<void()>& body) {
    std::fflush(nullptr);
    pid_t pid = ::fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void RunProtocol(const CrashScenario& scenario, const std::string& dir) {
    try {
        scenario.run(dir);
    } catch (const Vantu::BaseException& e) {
        std::fprintf(stderr, "protocol raised: %s\n", e.WhatUtf8().c_str());
        _exit(kThrew);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "protocol raised: %s\n", e.what());
        _exit(kThrew);
    }
}

}  // namespace

const char* CrashModeName(CrashMode mode) {
    switch (mode) {
        case CrashMode::ProcessDeath: return "process death";
        case CrashMode::PowerLoss: return "power loss";
        case CrashMode::TornPowerLoss: return "torn power loss";
    }
    return "?";
}

std::string CrashCase::Describe() const {
    std::ostringstream out;
    out << CrashModeName(mode);
    if (operation) out << " before operation " << operation;
    if (!point.empty()) out << " at \"" << point << "\" #" << occurrence;
    if (!operation && point.empty()) out << " after completion";
    if (mode == CrashMode::TornPowerLoss) out << " (seed " << seed << ")";
    return out.str();
}

std::string CrashReport::Summary() const {
    std::ostringstream out;
    out << failures.size() << " of " << cases << " crash cases failed (" << operations << " durable operations)";
    for (const std::string& f : failures) out << "\n  " << f;
    return out.str();
}

CrashReport CountCrashPoints(const CrashScenario& scenario) {
    TempDir dir;
    scenario.setup(dir.Path());
    int fds[2];
    if (::pipe(fds) != 0) return {};
    int code = InChild([&] {
        ::close(fds[0]);
        VantuFile::FaultInjector injector;
        injector.Activate();
        if (scenario.configure) scenario.configure(injector);
        RunProtocol(scenario, dir.Path());
        std::string out = std::to_string(injector.Operations()) + "\n";
        for (const std::string& p : injector.CrashPointsPassed()) out += p + "\n";
        if (::write(fds[1], out.data(), out.size()) != ssize_t(out.size())) _exit(kThrew);
    });
    ::close(fds[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) text.append(buffer, size_t(n));
    ::close(fds[0]);
    CrashReport report;
    if (code != 0) {
        report.failures.push_back("the protocol did not complete once with faults on (exit " + std::to_string(code) + ")");
        return report;
    }
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    report.operations = std::stoull(line);
    while (std::getline(in, line)) report.crashPoints.push_back(line);
    return report;
}

std::string RunCrashCase(const CrashScenario& scenario, CrashCase& c) {
    TempDir dir;
    scenario.setup(dir.Path());
    int code = InChild([&] {
        VantuFile::FaultInjector injector;
        injector.Activate();
        if (scenario.configure) scenario.configure(injector);
        auto die = [&](int code) {
            if (c.mode != CrashMode::ProcessDeath)
                injector.CutPower(c.mode == CrashMode::TornPowerLoss ? std::optional<uint64_t>(c.seed) : std::nullopt);
            _exit(code);
        };
        if (c.operation) injector.OnOperation(c.operation, [&] { die(kDied); });
        if (!c.point.empty()) injector.OnCrashPoint(c.point, c.occurrence, [&] { die(kDied); });
        RunProtocol(scenario, dir.Path());
        // The protocol returned: in the power modes the power fails right now, and what it promised must hold.
        die(kReturned);
    });
    c.completed = code == kReturned;
    if (code != kReturned && code != kDied) return c.Describe() + ": the child ended with " + std::to_string(code);
    std::string verdict;
    try {
        verdict = scenario.check(dir.Path(), c);
    } catch (const Vantu::BaseException& e) {
        verdict = "reopening raised: " + e.WhatUtf8();
    }
    return verdict.empty() ? verdict : c.Describe() + ": " + verdict;
}

CrashReport RunAtEveryCrashPoint(const CrashScenario& scenario, const std::vector<CrashMode>& modes, uint64_t seed) {
    CrashReport report = CountCrashPoints(scenario);
    if (!report.failures.empty()) return report;
    std::vector<CrashCase> cases;
    const char* full = std::getenv("SARVANE_CRASH_FULL");
    const uint64_t every = full && std::string(full) == "1" ? 1 : std::max<uint64_t>(scenario.every, 1);
    for (size_t m = 0; m < modes.size(); ++m) {
        const CrashMode mode = modes[m];
        for (uint64_t op = 1 + m % every; op <= report.operations; op += every) cases.push_back({mode, op, {}, 0, seed + op});
        std::map<std::string, uint64_t> seen;
        for (const std::string& p : report.crashPoints)
            if (const uint64_t n = ++seen[p]; n == 1 || (n + m) % every == 0)
                cases.push_back({mode, 0, p, n, seed + cases.size()});
        cases.push_back({mode, 0, {}, 0, seed});
    }
    for (CrashCase& c : cases) {
        std::string failure = RunCrashCase(scenario, c);
        ++report.cases;
        if (!failure.empty()) report.failures.push_back(failure);
    }
    return report;
}

}  // namespace SarvaneTest
