#include <unistd.h>

#include "journal/record.h"

namespace jx {

// Record names are digests without a dot, so a dotted name never passes for one.
Staging::Staging(const char *target, const char *kind) noexcept
    : path_(make_path({redo::record_path(target).c_str(), ".", kind})),
      fd_(redo::open_locked(path_.c_str(), true, true)) {}

// Litter, not state: its removal need not be durable.
Staging::~Staging() {
    if (fd_) {
        (void)io().unlink(path_.c_str());
    }
}

}  // namespace jx
