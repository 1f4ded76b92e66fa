// Runs a fuzz target over files without libFuzzer, so that the seed corpus and every input that
// once crashed are replayed by ordinary builds (g++, sanitizers, ARM) as regression tests.
//   <target> <file or folder>...
// 64-bit file offsets and inode numbers on 32-bit builds too: without them readdir() fails on
// file systems with large inode numbers.
#define _FILE_OFFSET_BITS 64
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int runFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(data.data(), data.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    int inputs = 0;
    int failures = 0;
    for (int i = 1; i < argc; ++i) {
        struct stat info {};
        if (stat(argv[i], &info) != 0) {
            std::fprintf(stderr, "no such input: %s\n", argv[i]);
            return 1;
        }
        if (!S_ISDIR(info.st_mode)) {
            failures += runFile(argv[i]);
            ++inputs;
            continue;
        }
        DIR* dir = opendir(argv[i]);
        if (dir == nullptr) {
            std::perror(argv[i]);
            return 1;
        }
        errno = 0;
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.') {
                failures += runFile(std::string(argv[i]) + "/" + entry->d_name);
                ++inputs;
            }
            errno = 0;
        }
        if (errno != 0) {
            std::perror(argv[i]);
            ++failures;
        }
        closedir(dir);
    }
    std::printf("%d inputs replayed\n", inputs);
    return failures == 0 && inputs > 0 ? 0 : 1;
}
