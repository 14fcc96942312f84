// One report, printed as text lines or as one JSON document with the same facts.
#include <cstdio>

#include <json-glib/json-glib.h>

#include "ctl.h"
#include "frame/raii.h"

namespace jx::tools {
namespace {

inline constexpr int kJsonSchema = 1;

void print_text(const Report &report, bool quiet) {
    for (const Row &row : report.rows) {
        if (quiet && !needs_attention(row.state) && row.action == "none") {
            continue;
        }
        std::printf("%s %c working=%s durable=%s backup=%s in_step=%s action=%s", row.path.c_str(),
                    row.mode, state_name(row.state.working), state_name(row.state.durable),
                    state_name(row.state.backup), row.state.in_step ? "yes" : "no",
                    row.action.c_str());
        if (row.has_syncd) {
            std::printf(" pending=%s last_sync=%lld", row.pending ? "yes" : "no",
                        static_cast<long long>(row.last_sync));
        }
        std::printf("\n");
    }
    for (const std::string &problem : report.problems) {
        std::printf("table %s\n", problem.c_str());
    }
}

void member(JsonBuilder *b, const char *name, const char *value) {
    json_builder_set_member_name(b, name);
    json_builder_add_string_value(b, value);
}

void add_row(JsonBuilder *b, const Row &row) {
    json_builder_begin_object(b);
    member(b, "path", row.path.c_str());
    const char mode[2] = {row.mode, '\0'};
    member(b, "mode", mode);
    member(b, "working", state_name(row.state.working));
    member(b, "durable", state_name(row.state.durable));
    member(b, "backup", state_name(row.state.backup));
    json_builder_set_member_name(b, "in_step");
    json_builder_add_boolean_value(b, row.state.in_step);
    member(b, "action", row.action.c_str());
    if (row.has_syncd) {
        json_builder_set_member_name(b, "pending");
        json_builder_add_boolean_value(b, row.pending);
        json_builder_set_member_name(b, "last_sync");
        json_builder_add_int_value(b, row.last_sync);
    }
    json_builder_end_object(b);
}

void add_lists(JsonBuilder *b, const Report &report) {
    json_builder_set_member_name(b, "files");
    json_builder_begin_array(b);
    for (const Row &row : report.rows) {
        add_row(b, row);
    }
    json_builder_end_array(b);
    json_builder_set_member_name(b, "problems");
    json_builder_begin_array(b);
    for (const std::string &problem : report.problems) {
        json_builder_add_string_value(b, problem.c_str());
    }
    json_builder_end_array(b);
}

void print_json(const Report &report) {
    JsonBuilder *b = json_builder_new();
    json_builder_begin_object(b);
    json_builder_set_member_name(b, "schema");
    json_builder_add_int_value(b, kJsonSchema);
    member(b, "command", report.command.c_str());
    json_builder_set_member_name(b, "exit");
    json_builder_add_int_value(b, report.exit_code);
    add_lists(b, report);
    json_builder_set_member_name(b, "reboot_in_progress");
    json_builder_add_boolean_value(b, report.rebooting);
    json_builder_set_member_name(b, "error");
    if (report.error.empty()) {
        json_builder_add_null_value(b);
    } else {
        json_builder_begin_object(b);
        member(b, "message", report.error.c_str());
        json_builder_end_object(b);
    }
    json_builder_end_object(b);
    JsonNode *root = json_builder_get_root(b);
    const GPtr<gchar> text(json_to_string(root, TRUE));
    std::printf("%s\n", text.get());
    json_node_unref(root);
    g_object_unref(b);
}

}  // namespace

void print_report(const Report &report, const CtlOptions &options) {
    if (options.json) {
        print_json(report);
    } else {
        print_text(report, options.quiet);
    }
    if (report.rebooting) {
        std::fprintf(stderr, "jaxelctl: reboot in progress; a real run would be refused\n");
    }
    if (!report.error.empty()) {
        std::fprintf(stderr, "jaxelctl: %s\n", report.error.c_str());
    }
}

}  // namespace jx::tools
