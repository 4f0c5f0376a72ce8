// Replays fuzz inputs (files, or every file in directories) through
// LLVMFuzzerTestOneInput, for builds without libFuzzer: CTest runs the
// corpora and regression inputs this way under ASan/UBSan.
#include <cstdio>
#include <filesystem>

#include "fuzz_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int count = 0;
    const auto replay = [&](const std::filesystem::path& p) {
        const fuzzinput::Bytes bytes = fuzzinput::read_file(p);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++count;
    };
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (!std::filesystem::exists(arg)) {
            std::fprintf(stderr, "cannot read %s\n", argv[i]);
            return 1;
        }
        if (!std::filesystem::is_directory(arg)) replay(arg);
        if (std::filesystem::is_directory(arg))
            for (const auto& e : std::filesystem::recursive_directory_iterator(arg))
                if (e.is_regular_file()) replay(e.path());
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
