// Small state files replaced whole so that a crash leaves either the old or the new content:
// write "path.tmp", rename it to "path.new", rename that to "path"; at load a "path.new" wins.
// Any thread; one writer per path at a time.
#pragma once

#include <string>

namespace VantuFile {

class StateFile {
public:
    // Replaces the content of `path` with `bytes`, durably, in the three steps.
    static void Replace(const std::string& path, const std::string& bytes);

    // Finishes a replacement that a crash cut short: a "path.new" takes the place of `path`.
    static void Recover(const std::string& path);

    // Reads `path` whole into `bytes`; false when there is no such file. Doesn't recover first.
    static bool Read(const std::string& path, std::string& bytes);
};

}  // namespace VantuFile
