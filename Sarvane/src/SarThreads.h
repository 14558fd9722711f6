// The names of the engine's threads and pools, and the one way the engine starts a thread of its own.
// Any thread; the system shows the first 15 bytes of a name.
#pragma once

#include "core/Function.h"
#include "core/Thread.h"

namespace Ostrel {

inline constexpr const char* kTransactionThreadName = "Sarc: TransactionThread";
inline constexpr const char* kStatsThreadName = "Sarc: StatsThread";
inline constexpr const char* kShrinkThreadName = "ShrinkThread";
inline constexpr const char* kTransactionReaderThreadName = "TransactionReader";
inline constexpr const char* kApplyTermsThreadName = "Reader: ApplyTerms";
inline constexpr const char* kSecurityCacheExpandThreadName = "SecurityCache:ExpandThread";

inline constexpr const char* kOperationPoolName = "SarOperationPool";
inline constexpr const char* kQueryPoolName = "QueryPool";
inline constexpr const char* kFastQueryPoolName = "FastQueryPool";
inline constexpr const char* kQueryHighlighterPoolName = "QueryHighlighter";

// Creates the thread and starts it at `priority`. Releasing the last reference waits for the function's end,
// which is how the engine's stops wait for their threads.
Vantu::RefCount<VantuThread::Thread> SarStartThread(const char* name, Vantu::SmartPtr<VantuThread::Function> function,
                                                   VantuThread::Priority priority = VantuThread::Priority::Normal);

}  // namespace Ostrel
