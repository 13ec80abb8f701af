// A main for building a fuzz target without libFuzzer (any compiler): runs the target once on
// each file named on the command line, or on every file of each directory named, in name
// order. Used by the corpus replay in CI, typically under AddressSanitizer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path p(argv[i]);
        if (fs::is_directory(p)) {
            std::vector<fs::path> inDir;
            for (const auto& e : fs::directory_iterator(p))
                if (e.is_regular_file()) inDir.push_back(e.path());
            std::sort(inDir.begin(), inDir.end());
            files.insert(files.end(), inDir.begin(), inDir.end());
        } else if (fs::is_regular_file(p)) {
            files.push_back(p);
        } else {
            std::fprintf(stderr, "no such file or directory: %s\n", argv[i]);
            return 2;
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR_OR_FILE...\n", argv[0]);
        return 2;
    }
    for (const fs::path& f : files) {
        std::ifstream s(f, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(s)),
                                      std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
