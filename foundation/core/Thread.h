// A named operating-system thread that runs one Function once, held through Vantu::RefCount<Thread>.
// Any thread may Run it and drop references; dropping the last one waits until the function returned.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>

#include "core/CriticalSection.h"
#include "core/Function.h"

namespace VantuThread {

// Thread priorities, lowest first. On Linux they map to nice values; raising one above normal
// needs a privilege the process usually lacks, and is then silently not done.
enum class Priority : int32_t { Lowest = -2, BelowNormal = -1, Normal = 0, AboveNormal = 1, Highest = 2, TimeCritical = 15 };

// The kernel's id of a thread (gettid); 0 is none.
using ThreadId = pid_t;

namespace ThisThread {
// Sets the priority of thread `id`, or of the calling thread when `id` is null. Best effort.
void Priority(VantuThread::Priority priority, const ThreadId* id = nullptr);
void YieldCPU();
ThreadId Id();
// Names the calling thread for debuggers and `ps`; the system keeps the first 15 bytes.
void SetName(const std::string& name);
}  // namespace ThisThread

// Writes to stderr what ended a function run by a thread or a pool, so that no failure is lost
// without a trace; `where` names the thread or pool.
void ReportFailure(const std::string& where, std::exception_ptr failure);

class Thread {
public:
    Thread(std::string name, Vantu::SmartPtr<Function> function);
    // Waits for the thread's end. A thread never started returns at once; a thread that drops its own
    // last reference from inside its function is detached instead, as it cannot wait for itself.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Starts the thread, which calls CallFunction. An exception that escapes it ends the thread and is
    // reported on stderr; it has nowhere else to go. A second Run raises an exception.
    virtual void Run();
    // Runs the function on the calling thread. Touches no member after the function returned, since
    // the function may have dropped the last reference to this object.
    virtual void CallFunction();

    // Applies at once to a running thread, else when it starts; ignored once it has ended.
    void SetPriority(Priority priority);
    // The kernel id while the thread runs, else 0.
    ThreadId Id() const;
    const std::string& Name() const { return name_; }

private:
    // What the running thread shares with its owner; it outlives the object when the thread detaches.
    struct State {
        mutable CriticalSection section;
        ThreadId id = 0;
        std::optional<Priority> priority;
    };
    static void Main(Thread* self, std::shared_ptr<State> state, std::string name);

    const std::string name_;
    const Vantu::SmartPtr<Function> function_;
    const std::shared_ptr<State> state_;
    std::thread thread_;
};

}  // namespace VantuThread
