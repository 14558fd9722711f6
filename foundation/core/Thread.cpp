#include "core/Thread.h"

#include <cstdio>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

#include "core/CoreMessages.h"
#include "core/Exception.h"
#include "core/SystemError.h"

namespace VantuThread {

namespace {

int NiceValue(Priority priority) {
    switch (priority) {
        case Priority::Lowest: return 10;
        case Priority::BelowNormal: return 5;
        case Priority::Normal: return 0;
        case Priority::AboveNormal: return -5;
        case Priority::Highest: return -10;
        case Priority::TimeCritical: return -20;
    }
    return 0;
}

}  // namespace

void ReportFailure(const std::string& where, std::exception_ptr failure) {
    std::string text = "unknown exception";
    try {
        std::rethrow_exception(failure);
    } catch (const Vantu::BaseException& e) {
        text = e.WhatUtf8();
    } catch (const std::exception& e) {
        text = e.what();
    } catch (...) {
    }
    std::fprintf(stderr, "%s: function ended by an exception: %s\n", where.c_str(), text.c_str());
}

namespace ThisThread {

void Priority(VantuThread::Priority priority, const ThreadId* id) {
    // Errors are ignored: priorities are a hint, and raising one is refused to unprivileged processes.
    (void)setpriority(PRIO_PROCESS, id ? *id : Id(), NiceValue(priority));
}

void YieldCPU() { sched_yield(); }

ThreadId Id() { return gettid(); }

void SetName(const std::string& name) { pthread_setname_np(pthread_self(), name.substr(0, 15).c_str()); }

}  // namespace ThisThread

Thread::Thread(std::string name, Vantu::SmartPtr<Function> function)
    : name_(std::move(name)), function_(std::move(function)), state_(std::make_shared<State>()) {}

Thread::~Thread() {
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id())
        thread_.detach();
    else
        thread_.join();
}

void Thread::Run() {
    if (thread_.joinable()) throw ThreadException(VANTU_CORE_MESSAGE(Vantu::kThreadStartedMessage, name_));
    try {
        thread_ = std::thread(&Thread::Main, this, state_, name_);
        // Named from here too, so that once Run returns the thread never shows the name of its starter.
        pthread_setname_np(thread_.native_handle(), name_.substr(0, 15).c_str());
    } catch (const std::system_error& e) {
        ThrowLastError(e.code().value());
    }
}

void Thread::CallFunction() {
    Vantu::SmartPtr<Function> function = function_;  // survives this object, see the header
    if (function) function->Call();
}

// `self` is valid until CallFunction starts; after it only `state` and `name` are used.
void Thread::Main(Thread* self, std::shared_ptr<State> state, std::string name) {
    ThisThread::SetName(name);
    {
        CriticalSectionLock lock(state->section);
        state->id = ThisThread::Id();
        if (state->priority) ThisThread::Priority(*state->priority, &state->id);
    }
    try {
        self->CallFunction();
    } catch (...) {
        ReportFailure("Thread \"" + name + "\"", std::current_exception());
    }
    CriticalSectionLock lock(state->section);
    state->id = 0;  // the kernel may give the id to another thread now
}

void Thread::SetPriority(Priority priority) {
    CriticalSectionLock lock(state_->section);
    state_->priority = priority;
    if (state_->id) ThisThread::Priority(priority, &state_->id);
}

ThreadId Thread::Id() const {
    CriticalSectionLock lock(state_->section);
    return state_->id;
}

}  // namespace VantuThread
