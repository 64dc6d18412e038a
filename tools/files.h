// Reading input from a file or standard input, and writing output so that a file appears under
// its name only when it is complete.
#ifndef VANTOR_TOOLS_FILES_H
#define VANTOR_TOOLS_FILES_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace vtool {

// A file opened for reading, or standard input for "-". Failures throw tool_error.
struct input_file {
    explicit input_file(const std::string& path);
    ~input_file();
    input_file(const input_file&) = delete;
    input_file& operator=(const input_file&) = delete;

    // Reads up to n bytes; fewer only at the end of the input.
    size_t read(uint8_t* dst, size_t n);
    // The first n bytes without consuming them (fewer if the input is shorter).
    const std::vector<uint8_t>& peek(size_t n);
    std::vector<uint8_t> read_all();

    std::string name;      // as given, or "standard input"
    bool regular = false;  // a regular file, whose size is known in advance
    uint64_t size = 0;     // its size in bytes when regular
    int fd = -1;

  private:
    std::vector<uint8_t> peeked_;
    size_t peek_pos_ = 0;
};

// Output to `path`. A regular file (or a new name) is written under a temporary name beside it
// and renamed to it by commit(), keeping the mode of the file it replaces; the temporary file is
// removed if the object is destroyed uncommitted (or the process is interrupted). A symbolic
// link is followed, so that its target is replaced and the link stays. Anything else (standard
// output as "-", /dev/stdout and the other descriptor names, devices, FIFOs, sockets) is opened
// and written directly. The constructor fails at once when the output cannot be written.
struct output_file {
    explicit output_file(const std::string& path);
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    void write(const uint8_t* data, size_t n);
    void commit();

    std::string name;

  private:
    std::string temp_;    // empty when written directly
    std::string target_;  // what the temporary file is renamed to
    int fd_ = -1;
    bool own_fd_ = true;  // false for an inherited descriptor such as standard output
    bool committed_ = false;
};

void write_whole_file(const std::string& path, const std::vector<uint8_t>& bytes);

// Removes pending temporary files when the process is stopped by SIGINT, SIGTERM or SIGHUP,
// and turns a broken pipe into a write error instead of a silent death.
void install_signal_cleanup();

// Creates the directory and its missing parents; fails when `dir` is not a directory after.
void make_dirs(const std::string& dir);

// The last component of `path` without its name ending: "a/clip.y4m" gives "clip".
std::string stem_of(const std::string& path);

// True when both paths exist and are the same file.
bool same_file(const std::string& a, const std::string& b);

// True when `path` names standard input or output.
inline bool is_stdio(const std::string& path) {
    return path == "-";
}

// The descriptor that `path` names when it is "-" (standard output), /dev/stdout, /dev/stderr,
// /dev/fd/N or /proc/self/fd/N; -1 for any other path.
int named_descriptor(const std::string& path);

// True when an output named `path` would be written to a device, FIFO, socket or inherited
// descriptor rather than to a file.
bool is_stream_output(const std::string& path);

}  // namespace vtool

#endif
