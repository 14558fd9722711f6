// The crash harness: runs a store's protocol in a child process and stops it at every durable operation,
// by process death or by a simulated power cut, then lets the test reopen the files and judge them.
// Parent-side calls only, from the test's thread.
//
// How a store test uses it:
//   CrashScenario s;
//   s.setup = [](const std::string& dir) { ... build the committed "before" state ... };   // parent, faults off
//   s.run   = [](const std::string& dir) { ... the protocol under test, e.g. Commit ... };  // child, faults on
//   s.check = [](const std::string& dir, const CrashCase& c) -> std::string {
//       ... reopen everything; return "" if the state is "before" or "after" (and "after" when c.completed),
//       otherwise say what is wrong ...                                                    // parent
//   };
//   CrashReport r = RunAtEveryCrashPoint(s);
//   EXPECT_TRUE(r.failures.empty()) << r.Summary();
//
// RunAtEveryCrashPoint first runs the protocol once to count its durable operations (write, truncate, fsync,
// create, rename, delete, directory fsync) and the VantuFile::CrashPoint names it passes. Then, in each mode,
// it runs one case per operation (the child stops just before it), one per crash-point pass, and one where the
// protocol completes (in the power modes the power then fails at once), each in a fresh directory.
// Modes: ProcessDeath (_exit: what the process wrote stays in the OS), PowerLoss (everything not synced is
// lost, unsynced creates/renames/deletes undone) and TornPowerLoss (a seeded random prefix of the unsynced
// writes and directory changes survives, the last write torn at a 512-byte boundary).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "file/FaultInjector.h"

namespace SarvaneTest {

enum class CrashMode { ProcessDeath, PowerLoss, TornPowerLoss };
const char* CrashModeName(CrashMode mode);
inline const std::vector<CrashMode> kAllCrashModes = {CrashMode::ProcessDeath, CrashMode::PowerLoss,
                                                      CrashMode::TornPowerLoss};

// Where one case stops: before durable operation `operation` (1-based), or at the `occurrence`th pass through
// crash point `point`; neither when both are empty/zero. `completed` is filled in: the protocol returned.
struct CrashCase {
    CrashMode mode = CrashMode::ProcessDeath;
    uint64_t operation = 0;
    std::string point;
    uint64_t occurrence = 0;
    uint64_t seed = 1;  // of the torn power cut
    bool completed = false;
    std::string Describe() const;
};

struct CrashScenario {
    std::function<void(const std::string& dir)> setup;
    std::function<void(const std::string& dir)> run;
    std::function<std::string(const std::string& dir, const CrashCase& c)> check;
    // Optional: adjusts the child's injector before the run (e.g. the switches that break the protocol).
    std::function<void(VantuFile::FaultInjector&)> configure;
    // A long protocol stops before one durable operation in `every`, each mode at other operations, so that the
    // modes together still cover `every` neighbours; SARVANE_CRASH_FULL=1 in the environment stops at all of them.
    // The passes through a named crash point are thinned alike, its first pass always taken.
    uint64_t every = 1;
};

struct CrashReport {
    uint64_t operations = 0;               // durable operations of one complete run
    std::vector<std::string> crashPoints;  // crash points passed in one complete run
    size_t cases = 0;
    std::vector<std::string> failures;     // one line per failed case
    std::string Summary() const;
};

// Every crash point, in every mode given.
CrashReport RunAtEveryCrashPoint(const CrashScenario& scenario, const std::vector<CrashMode>& modes = kAllCrashModes,
                                 uint64_t seed = 1);

// One case in a fresh directory; returns "" or what went wrong (the check's verdict or a failed child).
std::string RunCrashCase(const CrashScenario& scenario, CrashCase& c);

// Runs the protocol once with faults on and counts what RunAtEveryCrashPoint enumerates.
CrashReport CountCrashPoints(const CrashScenario& scenario);

}  // namespace SarvaneTest
