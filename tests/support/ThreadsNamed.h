// How many threads of this process show `name`, as the system shows it (its first 15 bytes).
// Any thread; a thread names itself once it runs, so a caller first makes sure that it has run.
#pragma once

#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <string>

namespace SarvaneTest {

inline int ThreadsNamed(std::string name) {
    name.resize(std::min<size_t>(name.size(), 15));
    int count = 0;
    DIR* tasks = opendir("/proc/self/task");
    while (dirent* entry = readdir(tasks)) {
        std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string shown;
        if (std::getline(comm, shown) && shown == name) ++count;
    }
    closedir(tasks);
    return count;
}

}  // namespace SarvaneTest
