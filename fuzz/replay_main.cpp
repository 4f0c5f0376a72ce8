// Replays fuzz inputs (files, or every file in directories) through
// LLVMFuzzerTestOneInput, for builds without libFuzzer: CTest runs the
// corpora and regression inputs this way under ASan/UBSan.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replay(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", p.c_str());
        return 1;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int failed = 0;
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& e : std::filesystem::recursive_directory_iterator(arg))
                if (e.is_regular_file()) failed += replay(e.path()), ++count;
        } else {
            failed += replay(arg), ++count;
        }
    }
    std::printf("replayed %d inputs\n", count);
    return failed == 0 ? 0 : 1;
}
