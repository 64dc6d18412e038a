// vantor: denoise camera frames and photos with libvantor, compare before and after, run the
// built-in demo and the benchmark.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <string>

#include "commands.h"
#include "errors.h"
#include "files.h"

namespace vtool {

const char usage_text[] =
    "usage:\n"
    "  vantor denoise IN OUT [-s WIDTHxHEIGHT] [--format F] [--scenario S] [--quiet]\n"
    "      IN, OUT: files, or - for standard input/output.\n"
    "      With -s: raw frames, one or many back to back, F = nv21 (default) | nm21 | yuyv |\n"
    "      yuy2 (also FFmpeg's yuyv422); output tightly packed in the same format.\n"
    "      Without -s: a PNG or JPEG picture, written out as PNG.\n"
    "      S = capture (default) | preview.\n"
    "  vantor compare BEFORE AFTER --out PNG [-s WIDTHxHEIGHT --format F] [--frame N]\n"
    "                 [--scale CODES]\n"
    "      Before, after and a heat map of the chroma change side by side.\n"
    "  vantor demo [--out DIR] [-s WIDTHxHEIGHT] [--seed N]\n"
    "      Denoises a built-in synthetic scene in both scenarios and reports the result.\n"
    "  vantor bench [--sizes WxH,...] [--formats F,...] [--seconds T]\n"
    "      Milliseconds per frame per format and size, beside a memcpy of the frame.\n"
    "The library's own log is off; VANTOR_LOG=E (errors) or I (all) turns it on.\n";

}  // namespace vtool

int main(int argc, char** argv) {
    using namespace vtool;
    install_signal_cleanup();
    // The library's own log lines (a build banner per handle, and its diagnostics) stay off
    // unless the user asks for them with VANTOR_LOG.
    setenv("VANTOR_LOG", "silent", 0);
    if (argc < 2) {
        fputs(usage_text, stderr);
        return exit_usage;
    }
    const std::string command = argv[1];
    try {
        if (command == "denoise")
            return cmd_denoise(argc, argv);
        if (command == "compare")
            return cmd_compare(argc, argv);
        if (command == "demo")
            return cmd_demo(argc, argv);
        if (command == "bench")
            return cmd_bench(argc, argv);
        if (command == "help" || command == "--help" || command == "-h") {
            fputs(usage_text, stdout);
            return exit_ok;
        }
        usage_error("unknown command '" + command + "' (commands: denoise, compare, demo, bench)");
    } catch (const tool_error& e) {
        fprintf(stderr, "vantor: %s\n", e.what());
        return e.code;
    } catch (const std::bad_alloc&) {
        fprintf(stderr, "vantor: out of memory\n");
        return exit_failure;
    }
}
