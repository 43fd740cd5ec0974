// SPDX-License-Identifier: MIT
//
// replay FOLDER...: runs what is fuzzed once for each file of the folders.
#include "Input.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

int main(int count, char** folders)
{
    size_t files = 0;
    for (int i = 1; i < count; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(folders[i])) {
            fprintf(stderr, "%s\n", entry.path().c_str()); // the last one is what failed
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string bytes(std::istreambuf_iterator<char>(file), {});
            LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   bytes.size());
            ++files;
        }
    }
    return files > 0 ? 0 : 1;
}
