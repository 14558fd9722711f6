#include "TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace SarvaneTest {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sarvane-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace SarvaneTest
