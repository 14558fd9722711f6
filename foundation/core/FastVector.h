// A vector of byte-copyable elements that grows by a fixed rule and never calls element constructors
// or destructors. Not synchronised: one thread at a time, or the holder's lock.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <type_traits>
#include <utility>

namespace Vantu {

template <class T>
class FastVector {
    static_assert(std::is_trivially_copyable_v<T>, "FastVector moves its elements by copying bytes");

public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;
    using size_type = size_t;

    FastVector() = default;
    FastVector(std::initializer_list<T> values) { Append(values.begin(), values.size()); }
    FastVector(const FastVector& other) { Append(other.begin_, other.size()); }
    FastVector(FastVector&& other) noexcept
        : begin_(std::exchange(other.begin_, nullptr)),
          end_(std::exchange(other.end_, nullptr)),
          storageEnd_(std::exchange(other.storageEnd_, nullptr)) {}
    FastVector& operator=(const FastVector& other) {
        if (this != &other) {
            clear();
            Append(other.begin_, other.size());
        }
        return *this;
    }
    FastVector& operator=(FastVector&& other) noexcept {
        std::swap(begin_, other.begin_);
        std::swap(end_, other.end_);
        std::swap(storageEnd_, other.storageEnd_);
        return *this;
    }
    virtual ~FastVector() { std::free(begin_); }

    // The capacity an append to a full vector of `count` elements reserves.
    static size_t GrownCapacity(size_t count) {
        size_t grown = count <= 256 ? size_t(double(count) * 2.0) : size_t(double(count) * 1.25);
        return grown < 16 ? 16 : grown;
    }

    iterator begin() { return begin_; }
    iterator end() { return end_; }
    const_iterator begin() const { return begin_; }
    const_iterator end() const { return end_; }
    T* data() { return begin_; }
    const T* data() const { return begin_; }
    size_t size() const { return size_t(end_ - begin_); }
    size_t capacity() const { return size_t(storageEnd_ - begin_); }
    bool empty() const { return begin_ == end_; }
    T& operator[](size_t i) { return begin_[i]; }
    const T& operator[](size_t i) const { return begin_[i]; }
    T& front() { return *begin_; }
    const T& front() const { return *begin_; }
    T& back() { return end_[-1]; }
    const T& back() const { return end_[-1]; }

    void push_back(const T& value) {
        if (end_ == storageEnd_) {
            T copy = value;  // `value` may live in the block that reserve frees
            reserve(GrownCapacity(size()));
            *end_++ = copy;
        } else {
            *end_++ = value;
        }
    }
    void pop_back() { --end_; }
    // Keeps the storage.
    void clear() { end_ = begin_; }
    void reserve(size_t n) {
        if (n <= capacity()) return;
        size_t count = size();
        T* block = static_cast<T*>(std::malloc(n * sizeof(T)));
        if (!block) throw std::bad_alloc();
        if (count) std::memcpy(static_cast<void*>(block), begin_, count * sizeof(T));
        std::free(begin_);
        begin_ = block;
        end_ = block + count;
        storageEnd_ = block + n;
    }
    // New elements are copies of `value`.
    void resize(size_t n, const T& value = T()) {
        if (n > capacity()) reserve(n);
        while (size_t(end_ - begin_) < n) *end_++ = value;
        end_ = begin_ + n;
    }
    iterator insert(iterator at, const T& value) {
        size_t index = size_t(at - begin_);
        T copy = value;  // `value` may live in this vector
        push_back(copy);
        std::memmove(static_cast<void*>(begin_ + index + 1), begin_ + index, (size() - index - 1) * sizeof(T));
        begin_[index] = copy;
        return begin_ + index;
    }
    iterator erase(iterator at) {
        std::memmove(static_cast<void*>(at), at + 1, size_t(end_ - at - 1) * sizeof(T));
        --end_;
        return at;
    }

private:
    void Append(const T* values, size_t n) {
        reserve(size() + n);
        if (n) std::memcpy(static_cast<void*>(end_), values, n * sizeof(T));
        end_ += n;
    }

    T* begin_ = nullptr;
    T* end_ = nullptr;
    T* storageEnd_ = nullptr;
};

// A vector of pointers that the holder owns: destroying the vector frees only the array.
template <class T>
class PointerVector : public FastVector<T*> {
public:
    using FastVector<T*>::FastVector;
};

}  // namespace Vantu
