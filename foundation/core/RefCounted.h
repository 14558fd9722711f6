// Intrusive (SmartPtr) and separate-counter (RefCount) reference-counted pointers.
// Counts change atomically, so pointers to one object may be copied and dropped on any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace Vantu {

// Base of classes held by SmartPtr: an embedded atomic counter; deletes itself at zero.
class SPRefCounter {
public:
    SPRefCounter() = default;
    SPRefCounter(const SPRefCounter&) : refs_(0) {}
    SPRefCounter& operator=(const SPRefCounter&) { return *this; }
    virtual ~SPRefCounter() = default;

    void AddRef() const { refs_.fetch_add(1, std::memory_order_relaxed); }
    void Release() const {
        if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
    int32_t NbRef() const { return refs_.load(std::memory_order_acquire); }

private:
    mutable std::atomic<int32_t> refs_{0};
};

// The same for objects that never leave one thread: no atomics.
class SPRefCounterST {
public:
    SPRefCounterST() = default;
    SPRefCounterST(const SPRefCounterST&) : refs_(0) {}
    SPRefCounterST& operator=(const SPRefCounterST&) { return *this; }
    virtual ~SPRefCounterST() = default;

    void AddRef() const { ++refs_; }
    void Release() const {
        if (--refs_ == 0) delete this;
    }
    int32_t NbRef() const { return refs_; }

private:
    mutable int32_t refs_ = 0;
};

// Pointer to an object with an embedded counter (SPRefCounter or SPRefCounterST).
// Assignment takes the new reference before it drops the old one.
template <class T>
class SmartPtr {
public:
    SmartPtr() = default;
    SmartPtr(std::nullptr_t) {}
    SmartPtr(T* p) : p_(p) { if (p_) p_->AddRef(); }
    SmartPtr(const SmartPtr& o) : SmartPtr(o.p_) {}
    SmartPtr(SmartPtr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    template <class U>
    SmartPtr(const SmartPtr<U>& o) : SmartPtr(o.Get()) {}
    ~SmartPtr() { if (p_) p_->Release(); }

    SmartPtr& operator=(const SmartPtr& o) { return Assign(o.p_); }
    SmartPtr& operator=(SmartPtr&& o) noexcept {
        if (this != &o) {
            T* old = std::exchange(p_, std::exchange(o.p_, nullptr));
            if (old) old->Release();
        }
        return *this;
    }
    SmartPtr& operator=(T* p) { return Assign(p); }

    T* Get() const { return p_; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    explicit operator bool() const { return p_ != nullptr; }
    bool operator==(const SmartPtr& o) const { return p_ == o.p_; }
    bool operator==(std::nullptr_t) const { return p_ == nullptr; }

private:
    SmartPtr& Assign(T* p) {
        if (p) p->AddRef();
        T* old = std::exchange(p_, p);
        if (old) old->Release();
        return *this;
    }
    T* p_ = nullptr;
};

template <class T>
class SmartPtrToConst {
public:
    SmartPtrToConst() = default;
    SmartPtrToConst(std::nullptr_t) {}
    SmartPtrToConst(const T* p) : p_(p) {}
    SmartPtrToConst(const SmartPtr<T>& p) : p_(p.Get()) {}

    const T* Get() const { return p_.Get(); }
    const T* operator->() const { return p_.Get(); }
    const T& operator*() const { return *p_; }
    explicit operator bool() const { return bool(p_); }
    bool operator==(const SmartPtrToConst& o) const { return p_ == o.p_; }
    bool operator==(std::nullptr_t) const { return !p_; }

private:
    SmartPtr<const T> p_;
};

// Pointer to any object with a separate heap counter; a new non-null RefCount counts 1.
// At zero the object is deleted, then the counter.
template <class T>
class RefCount {
public:
    RefCount() = default;
    RefCount(std::nullptr_t) {}
    explicit RefCount(T* p) : count_(p ? new std::atomic<int32_t>(1) : nullptr), p_(p) {}
    RefCount(const RefCount& o) : count_(o.count_), p_(o.p_) { AddRef(); }
    RefCount(RefCount&& o) noexcept
        : count_(std::exchange(o.count_, nullptr)), p_(std::exchange(o.p_, nullptr)) {}
    template <class U>
    RefCount(const RefCount<U>& o) : count_(o.count_), p_(o.p_) { AddRef(); }
    ~RefCount() { Drop(); }

    RefCount& operator=(RefCount o) noexcept {
        std::swap(count_, o.count_);
        std::swap(p_, o.p_);
        return *this;
    }

    T* Get() const { return p_; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    explicit operator bool() const { return p_ != nullptr; }
    bool operator==(const RefCount& o) const { return p_ == o.p_; }
    bool operator==(std::nullptr_t) const { return p_ == nullptr; }
    int32_t NbRef() const { return count_ ? count_->load(std::memory_order_acquire) : 0; }

private:
    template <class U> friend class RefCount;
    void AddRef() { if (count_) count_->fetch_add(1, std::memory_order_relaxed); }
    void Drop() {
        if (count_ && count_->fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete p_;
            delete count_;
        }
        count_ = nullptr;
        p_ = nullptr;
    }
    std::atomic<int32_t>* count_ = nullptr;
    T* p_ = nullptr;
};

template <class T>
using RefCountToConst = RefCount<const T>;

}  // namespace Vantu
