// A reference-counted callable that a Thread or a ThreadPool runs. Immutable once made: any thread
// may hold it; Call runs on whichever thread calls it.
#pragma once

#include <functional>
#include <utility>

#include "core/RefCounted.h"

namespace VantuThread {

class Function : public Vantu::SPRefCounter {
public:
    virtual void* Call() = 0;
};

// Runs a lambda or a std::function; its result is null.
class LambdaFunction : public Function {
public:
    explicit LambdaFunction(std::function<void()> body) : body_(std::move(body)) {}
    void* Call() override {
        body_();
        return nullptr;
    }

private:
    std::function<void()> body_;
};

// Calls `(object->*method)(argument)` on a plain pointer: the caller keeps the object alive.
template <class T>
class MemberFunction : public Function {
public:
    using Method = void* (T::*)(void*);
    MemberFunction(T* object, Method method, void* argument) : object_(object), method_(method), argument_(argument) {}
    void* Call() override { return (object_->*method_)(argument_); }

private:
    T* object_;
    Method method_;
    void* argument_;
};

// The same on an object held by RefCount: the function keeps its object alive until it is dropped.
template <class T>
class RefCountFunction : public Function {
public:
    using Method = void* (T::*)(void*);
    RefCountFunction(Vantu::RefCount<T> object, Method method, void* argument)
        : object_(std::move(object)), method_(method), argument_(argument) {}
    void* Call() override { return (object_.Get()->*method_)(argument_); }

private:
    Vantu::RefCount<T> object_;
    Method method_;
    void* argument_;
};

inline Vantu::SmartPtr<Function> MakeFunction(std::function<void()> body) {
    return new LambdaFunction(std::move(body));
}

template <class T>
Vantu::SmartPtr<Function> MakeFunction(T* object, void* (T::*method)(void*), void* argument = nullptr) {
    return new MemberFunction<T>(object, method, argument);
}

template <class T>
Vantu::SmartPtr<Function> MakeFunction(Vantu::RefCount<T> object, void* (T::*method)(void*), void* argument = nullptr) {
    return new RefCountFunction<T>(std::move(object), method, argument);
}

}  // namespace VantuThread
