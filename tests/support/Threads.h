// What the operating system sees of this process's threads.
#pragma once

#include <dirent.h>

#include <fstream>
#include <string>

namespace wws_test {

// Threads of this process whose name, as the kernel keeps it (15 characters), is name.
inline int threadsNamed(const std::string& name) {
    int count = 0;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) return -1;
    while (dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] == '.') continue;
        std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string threadName;
        std::getline(comm, threadName);
        if (threadName == name) ++count;
    }
    closedir(tasks);
    return count;
}

}  // namespace wws_test
