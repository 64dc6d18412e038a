// Runs a fuzz target's entry once on every input file under the given directories (or on the
// given files), without fuzzing. Linked in place of libFuzzer, it turns the seed corpus and the
// reproducers kept there into regression tests of every build, the emulated Arm ones included.
//   replay_FAMILY DIR_OR_FILE ...
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            for (const auto& e : fs::directory_iterator(argv[i]))
                if (e.is_regular_file())
                    files.push_back(e.path().string());
        } else if (fs::is_regular_file(argv[i])) {
            files.push_back(argv[i]);
        } else {
            fprintf(stderr, "replay: no such file or directory: %s\n", argv[i]);
            return 2;
        }
    }
    std::sort(files.begin(), files.end());
    size_t bytes = 0;
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
        // An input that finds something aborts here, with the file named first.
        fprintf(stderr, "replay: %s\n", f.c_str());
        LLVMFuzzerTestOneInput(data.data(), data.size());
        bytes += data.size();
    }
    printf("replay: %zu inputs (%zu bytes) ran without a finding\n", files.size(), bytes);
    return files.empty() ? 1 : 0;
}
