// Replays fuzz inputs (files, or the files in directories) through
// LLVMFuzzerTestOneInput, for builds without libFuzzer: CTest runs the
// corpora and regression inputs this way under ASan/UBSan.
#include <cstdio>
#include <filesystem>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files{argv[i]};
        if (std::filesystem::is_directory(files[0]))
            files.assign(std::filesystem::directory_iterator(argv[i]), {});
        for (const auto& f : files) {
            if (!std::filesystem::exists(f)) return std::fprintf(stderr, "no %s\n", f.c_str()), 1;
            const fuzzinput::Bytes bytes = fuzzinput::read_file(f);
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++count;
        }
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
