// A fresh directory under the system's temporary folder, removed with everything in it at destruction.
#pragma once

#include <string>

namespace SarvaneTest {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace SarvaneTest
