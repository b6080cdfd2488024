// What a test can see of the process's open file descriptors.
#ifndef ZNUTIL_TESTS_DESCRIPTORS_H
#define ZNUTIL_TESTS_DESCRIPTORS_H

#include <cstdlib>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace ZnTest
{

/// True when \p fd is an open descriptor of this process.
inline bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

/// The descriptors of this process that refer to \p path.
inline std::vector<int> descriptorsOn(const std::string& path)
{
    std::vector<int> found;
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr)
    {
        return found;
    }
    const int own = dirfd(dir);
    for (dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir))
    {
        if (entry->d_name[0] == '.')
        {
            continue;
        }
        const int fd = atoi(entry->d_name);
        if (fd == own)
        {
            continue;
        }
        char target[4096];
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
        if (n > 0 && std::string(target, static_cast<size_t>(n)) == path)
        {
            found.push_back(fd);
        }
    }
    closedir(dir);
    return found;
}

} // namespace ZnTest

#endif // ZNUTIL_TESTS_DESCRIPTORS_H
