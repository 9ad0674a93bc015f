// Runs a fuzz target over files and folders without libFuzzer: the ordinary
// build uses it to replay the seed corpora and every minimised reproducer in
// fuzz/regressions/. Prints "N passed, 0 failed"; a crash or sanitizer report
// ends the process and fails the test.
#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void collect(const std::string& path, std::vector<std::string>* files) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return;
    if (S_ISREG(st.st_mode)) {
        files->push_back(path);
        return;
    }
    if (!S_ISDIR(st.st_mode)) return;
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) return;
    std::vector<std::string> names;
    while (dirent* e = readdir(dir)) {
        std::string name = e->d_name;
        if (name == "." || name == ".." || name[0] == '.') continue;
        names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) collect(path + "/" + name, files);
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) collect(argv[i], &files);
    size_t passed = 0;
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++passed;
    }
    printf("%zu passed, 0 failed\n", passed);
    return 0;
}
