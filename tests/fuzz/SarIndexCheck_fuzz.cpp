// Fuzz target of the index checker: the input is a slice directory packed as files, each a u8 name length, the
// name, a u32 size and the bytes. The checker must give findings, never crash, hang or allocate without bound.
// Built for libFuzzer by scripts/fuzz.sh; a bounded run is part of the test suite.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "SarIndexChecker.h"

namespace {

bool NameAllowed(const std::string& name) {
    if (name.empty() || name[0] == '.') return false;
    for (char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_') return false;
    return true;
}

// One directory per process, emptied before each input.
const std::filesystem::path& WorkDirectory() {
    static const std::filesystem::path dir = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "sarvane-check-fuzz-XXXXXX").string();
        if (!mkdtemp(pattern.data())) std::abort();
        return std::filesystem::path(pattern);
    }();
    return dir;
}

void Unpack(const uint8_t* data, size_t size, const std::filesystem::path& dir) {
    for (const auto& entry : std::filesystem::directory_iterator(dir)) std::filesystem::remove_all(entry.path());
    size_t at = 0;
    while (at < size) {
        const size_t nameSize = data[at++];
        if (nameSize > size - at) return;
        const std::string name(reinterpret_cast<const char*>(data + at), nameSize);
        at += nameSize;
        if (size - at < 4) return;
        const size_t bytes = data[at] | data[at + 1] << 8 | data[at + 2] << 16 | size_t(data[at + 3]) << 24;
        at += 4;
        if (!NameAllowed(name) || bytes > size - at) return;
        std::ofstream(dir / name, std::ios::binary).write(reinterpret_cast<const char*>(data + at), std::streamsize(bytes));
        at += bytes;
    }
}

}  // namespace

// The faults found in the packed slice.
size_t SarIndexCheckFaults(const uint8_t* data, size_t size) {
    Unpack(data, size, WorkDirectory());
    Ostrel::SarCheckReport report;
    Ostrel::CheckSlice(WorkDirectory().string(), report);
    return report.Faults();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SarIndexCheckFaults(data, size);
    return 0;
}
