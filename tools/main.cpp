// vantor: denoise camera frames and photos with libvantor, compare before and after, run the
// built-in demo and the benchmark.
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <string>

#include "args.h"
#include "commands.h"
#include "errors.h"
#include "files.h"
#include "vantor.h"

namespace vtool {

namespace {

struct command_help {
    const char* name;
    const char* usage;
};

const command_help commands[] = {
    {"denoise",
     "  vantor denoise IN OUT [-s WIDTHxHEIGHT] [--format F] [--scenario S] [--quality Q]\n"
     "                 [--quiet]            or: vantor denoise IN... -o DIR [options]\n"
     "      IN, OUT: files, or - for standard input/output.\n"
     "      With -s: raw frames, one or many back to back, F (or -pix_fmt F) = nv21 (default)\n"
     "      | nm21 | yuyv | yuy2 | nv12 | i420 | i422 (also FFmpeg's yuyv422, yuv420p,\n"
     "      yuv422p); output tightly packed in the same format.\n"
     "      YUV4MPEG2 (by its first bytes or a .y4m name): size and rate from its header,\n"
     "      4:2:0 or 4:2:2, progressive; written as YUV4MPEG2 (OUT named .y4m, or -).\n"
     "      Otherwise a PNG or JPEG picture, written as PNG or JPEG by OUT's ending (.png,\n"
     "      .jpg, .jpeg; - is PNG); Q = JPEG quality, 1 to 100 (default 90).\n"
     "      -o DIR: each IN to DIR under its own name; exit status 1 if any failed.\n"
     "      S = capture (default) | preview.\n"},
    {"compare",
     "  vantor compare BEFORE AFTER --out PICTURE [-s WIDTHxHEIGHT --format F] [--frame N]\n"
     "                 [--scale CODES] [--quality Q]\n"
     "      Before, after and a heat map of the chroma change side by side, as PNG or JPEG\n"
     "      by the output's ending; with --out - the picture goes to standard output and the\n"
     "      figures to standard error.\n"},
    {"demo",
     "  vantor demo [--out DIR] [-s WIDTHxHEIGHT] [--seed N]\n"
     "      Denoises a built-in synthetic scene in both scenarios and reports the result.\n"},
    {"bench",
     "  vantor bench [--sizes WxH,...] [--formats F,...] [--seconds T]\n"
     "      Milliseconds per frame per format and size, beside a memcpy of the frame.\n"},
};

const char usage_footer[] =
    "A frame the library reports as failed is run again (up to 3 tries, each said on stderr);\n"
    "if it still fails the tool stops with exit status 1.\n"
    "The library's own log is off; VANTOR_LOG=E (errors) or I (all) turns it on.\n"
    "vantor COMMAND --help shows one command; vantor --version the versions.\n";

void print_usage(FILE* to, const std::string& only) {
    fputs("usage:\n", to);
    for (const command_help& c : commands)
        if (only.empty() || only == c.name)
            fputs(c.usage, to);
    fputs(usage_footer, to);
}

void print_version() {
    printf("vantor %s\n", VANTOR_VERSION);
    // The library's version is in the name of the file the loader reached through the soname
    // link (libvantor.so.MAJOR.MINOR.PATCH); the path tells a stray copy apart.
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&vantor_init), &info) || !info.dli_fname) {
        printf("libvantor: cannot tell which file was loaded\n");
        return;
    }
    char* real = realpath(info.dli_fname, nullptr);
    const std::string file = real ? real : info.dli_fname;
    free(real);
    const size_t so = file.rfind(".so.");
    printf("libvantor %s, loaded from %s\n",
           so == std::string::npos ? "(version not in its file name)" : file.c_str() + so + 4,
           file.c_str());
}

}  // namespace

}  // namespace vtool

int main(int argc, char** argv) {
    using namespace vtool;
    install_signal_cleanup();
    // The library's own log lines (a build banner per handle, and its diagnostics) stay off
    // unless the user asks for them with VANTOR_LOG.
    setenv("VANTOR_LOG", "silent", 0);
    if (argc < 2) {
        print_usage(stderr, "");
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
            print_usage(stdout, "");
            return exit_ok;
        }
        if (command == "--version") {
            print_version();
            return exit_ok;
        }
        usage_error("unknown command '" + command + "' (commands: denoise, compare, demo, bench)");
    } catch (const help_request& h) {
        print_usage(stdout, h.command);
        return exit_ok;
    } catch (const tool_error& e) {
        fprintf(stderr, "vantor: %s\n", e.what());
        return e.code;
    } catch (const std::bad_alloc&) {
        fprintf(stderr, "vantor: out of memory\n");
        return exit_failure;
    }
}
