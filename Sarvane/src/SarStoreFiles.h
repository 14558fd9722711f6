// What every file-backed store of a slice does the same way: where its files lie, the sizes its configuration
// gives it, how big a file is on disk, how a commit-log replay copies logged bytes into a data file, and how the
// slice's log texts open.
// Free functions; any thread (the configuration is read under its own lock).
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "SarTransaction.h"
#include "SarvaneConfigLock.h"
#include "SarvaneInternalConfig.h"
#include "file/BinaryStreamException.h"

namespace Ostrel {

// Every text the slice's transactions log opens with the slice's ids.
inline std::u16string SarLogPrefix(const SarvaneInternalConfig& config) {
    SarvaneConfigReadLock<SarvaneInternalConfig> hold(config);
    return u"[" + config.GetIDString() + u"] ";
}

// `name` in the slice's index files path.
inline std::string SarStorePath(const SarvaneInternalConfig& config, const std::string& name) {
    SarvaneConfigReadLock<SarvaneInternalConfig> hold(config);
    return config.GetIndexFilesPathAsString() + "/" + name;
}

inline uint32_t SarStoreSize(const SarvaneInternalConfig& config, SarvaneConfig::Size size) {
    SarvaneConfigReadLock<SarvaneInternalConfig> hold(config);
    return config.GetSize(size);
}

// 0 for a file that doesn't exist.
inline uint64_t SarSizeOnDisk(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? uint64_t(info.st_size) : 0;
}

// Copies `size` bytes of the log to `offset` in `file`, a round at a time through the stack.
template <class File>
void SarCopyLogToFile(SarTransaction::Stream& log, File& file, uint64_t offset, uint64_t size) {
    uint8_t round[Vantu::BaseBinaryStreamBuf::kCopyRound];
    file.Seek(decltype(file.Size())(offset));
    for (uint64_t left = size; left > 0;) {
        const size_t take = size_t(std::min<uint64_t>(left, sizeof round));
        log.GetExact(round, take);
        file.Write(round, 1, take);
        left -= take;
    }
}

// A commit log that holds a record this store doesn't know is damaged.
[[noreturn]] inline void SarThrowUnknownRecord(uint32_t opcode, const std::string& log) {
    Vantu::ThrowStream<Vantu::BinaryStreamException>("Unknown record " + std::to_string(opcode) + " in " + log);
}

}  // namespace Ostrel
