// The table index against GKeyFile on random table text: the first byte says
// where the text is cut; the index reads the first part whole, then the grown
// file from its old end, and every answer must equal GKeyFile's.
#include "fuzz_setup.h"
#include "support/table_oracle.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return jx::fuzz::enter_sandbox(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const char *path = jx::kRegTablePath;
    jx::RegIndex index;
    for (const std::size_t end : {text.size() * data[0] / 255, text.size()}) {
        jx::test::write_file(path, text.substr(0, end));
        for (const char *probe : {"/p/a", "/p/a "}) {
            jx::fuzz::require_equal(jx::test::table_by_index(index, path, probe),
                                    jx::test::table_by_key_file(path, probe));
        }
    }
    return 0;
}
