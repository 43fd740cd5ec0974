// SPDX-License-Identifier: MIT
//
// replay FOLDER...: runs what is fuzzed once for each file of the folders, none of which is empty.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

int main(int count, char** folders)
{
    for (int i = 1; i < count; ++i) {
        size_t files = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folders[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
            if (!file) {
                fprintf(stderr, "%s cannot be read\n", entry.path().c_str());
                return 1;
            }
            fprintf(stderr, "%s\n", entry.path().c_str()); // the last one is what failed
            LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   bytes.size());
            ++files;
        }
        if (files == 0) {
            fprintf(stderr, "%s is empty\n", folders[i]);
            return 1;
        }
    }
    return count > 1 ? 0 : 1;
}
