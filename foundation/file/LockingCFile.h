// File objects that carry one critical section for their callers: whoever does seek-then-read or
// seek-then-write holds Section() around the pair. The object never takes the section itself.
#pragma once

#include "core/CriticalSection.h"
#include "file/CFileGrowT.h"

namespace VantuFile {

template <class T>
class LockingCFileT : public CFileT<T> {
public:
    using CFileT<T>::CFileT;
    VantuThread::CriticalSection& Section() { return section_; }

private:
    VantuThread::CriticalSection section_;
};

template <class T>
class LockingCFileGrowT : public CFileGrowT<T> {
public:
    using CFileGrowT<T>::CFileGrowT;
    VantuThread::CriticalSection& Section() { return section_; }

private:
    VantuThread::CriticalSection section_;
};

}  // namespace VantuFile
