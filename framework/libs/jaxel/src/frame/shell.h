// Commands for "/bin/sh -c" built from names that come from configuration or
// callers: such a name must never change what the command does.
#pragma once

#include <cstddef>

namespace jx {

// Size of every command buffer the library hands to the shell.
inline constexpr std::size_t kShellCommandSize = 768;

// Copies arg into out unchanged when it is made only of letters, digits and
// . _ - / + , : @ % =; otherwise wraps it in single quotes, writing each '
// as '\''. False (out then "") when the result does not fit in size bytes.
bool shell_quote(const char *arg, char *out, std::size_t size) noexcept;

// One argument quoted for the shell, ready for a %s of a command format.
class ShellArg {
public:
    explicit ShellArg(const char *arg) noexcept : fits_(shell_quote(arg, text_, sizeof text_)) {}
    const char *c_str() const noexcept { return text_; }
    bool fits() const noexcept { return fits_; }

private:
    char text_[kShellCommandSize] = {};
    bool fits_;
};

// Runs "/bin/sh" "-c" command through the I/O seam; the program's result.
int run_shell(const char *command) noexcept;

}  // namespace jx
