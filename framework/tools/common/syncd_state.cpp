#include "syncd_state.h"

#include <json-glib/json-glib.h>

#include "frame/raii.h"

namespace jx::tools {
namespace {

template <typename T>
struct GObjectFreer {
    void operator()(T *object) const { g_object_unref(object); }
};
template <typename T>
using ObjectPtr = std::unique_ptr<T, GObjectFreer<T>>;

void add_int(JsonBuilder *builder, const char *name, int64_t value) {
    json_builder_set_member_name(builder, name);
    json_builder_add_int_value(builder, value);
}

void add_files(JsonBuilder *builder, const std::vector<SyncdFile> &files) {
    json_builder_set_member_name(builder, "files");
    json_builder_begin_array(builder);
    for (const SyncdFile &file : files) {
        json_builder_begin_object(builder);
        json_builder_set_member_name(builder, "path");
        json_builder_add_string_value(builder, file.path.c_str());
        json_builder_set_member_name(builder, "pending");
        json_builder_add_boolean_value(builder, file.pending);
        add_int(builder, "last_sync", file.last_sync);
        json_builder_end_object(builder);
    }
    json_builder_end_array(builder);
}

void read_files(JsonObject *root, std::vector<SyncdFile> &files) {
    JsonArray *array = json_object_get_array_member(root, "files");
    for (guint i = 0; array != nullptr && i < json_array_get_length(array); ++i) {
        JsonObject *file = json_array_get_object_element(array, i);
        files.push_back({json_object_get_string_member_with_default(file, "path", ""),
                         json_object_get_boolean_member_with_default(file, "pending", FALSE) != 0,
                         json_object_get_int_member_with_default(file, "last_sync", 0)});
    }
}

}  // namespace

bool write_syncd_state(const SyncdState &state, const char *path) {
    const ObjectPtr<JsonBuilder> builder(json_builder_new());
    json_builder_begin_object(builder.get());
    add_int(builder.get(), "schema", kSyncdStateSchema);
    add_int(builder.get(), "pid", state.pid);
    add_int(builder.get(), "updated", state.updated);
    add_int(builder.get(), "bytes_per_day", static_cast<int64_t>(state.bytes_per_day));
    add_int(builder.get(), "burst", static_cast<int64_t>(state.burst));
    add_int(builder.get(), "tokens", static_cast<int64_t>(state.tokens));
    add_int(builder.get(), "bytes_written", static_cast<int64_t>(state.bytes_written));
    add_files(builder.get(), state.files);
    json_builder_end_object(builder.get());
    JsonNode *root = json_builder_get_root(builder.get());
    const GPtr<gchar> text(json_to_string(root, TRUE));
    json_node_unref(root);
    // Replaced whole by rename, so a reader never sees half a document.
    return g_file_set_contents(path, text.get(), -1, nullptr) != 0;
}

bool read_syncd_state(SyncdState &state, const char *path) {
    const ObjectPtr<JsonParser> parser(json_parser_new());
    if (!json_parser_load_from_file(parser.get(), path, nullptr)) {
        return false;
    }
    JsonNode *node = json_parser_get_root(parser.get());
    if (node == nullptr || !JSON_NODE_HOLDS_OBJECT(node)) {
        return false;
    }
    JsonObject *root = json_node_get_object(node);
    state.pid = json_object_get_int_member_with_default(root, "pid", 0);
    state.updated = json_object_get_int_member_with_default(root, "updated", 0);
    state.bytes_per_day =
        static_cast<uint64_t>(json_object_get_int_member_with_default(root, "bytes_per_day", 0));
    state.burst = static_cast<uint64_t>(json_object_get_int_member_with_default(root, "burst", 0));
    state.tokens = static_cast<double>(json_object_get_int_member_with_default(root, "tokens", 0));
    state.bytes_written =
        static_cast<uint64_t>(json_object_get_int_member_with_default(root, "bytes_written", 0));
    read_files(root, state.files);
    return true;
}

}  // namespace jx::tools
