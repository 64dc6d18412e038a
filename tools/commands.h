// The subcommands of the vantor tool. Each returns the process exit code and reports failures
// by throwing tool_error.
#ifndef VANTOR_TOOLS_COMMANDS_H
#define VANTOR_TOOLS_COMMANDS_H

namespace vtool {

int cmd_denoise(int argc, char** argv);
int cmd_compare(int argc, char** argv);
int cmd_demo(int argc, char** argv);
int cmd_bench(int argc, char** argv);

}  // namespace vtool

#endif
