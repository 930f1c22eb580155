/* Checks that the code, documents and seeds that are written by hand mention each family of commands. Nothing else
 * would notice that a new family is missing there. */
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/records/all_families.h"

namespace {

struct place_t {
    const char *folder;
    const char *files; /* beginning of the file names */
    const char *extension;
    const char *before, *after; /* a command of the family stands between them */
    bool is_identifier;         /* with underscores for its blanks */
    bool is_each_verb;          /* with its verb, and each verb is needed; else one place is enough for a family */
};

const place_t all_places[] = {
    {"include/fwx_nat64", "fwx_nat64", ".hpp", "auto ", "(", true, true},
    {"bindings/python/src", "commands", ".c", " X(", ",", true, false},
    {"docs/man", "natctl", ".1", "\n.B natctl ", " ", false, false},
    {"examples", "", ".natctl", "\n", " ", false, false},
    {"fuzz/seeds", "document-", ".txt", "\n", " ", false, false},
};

std::string text_of(const place_t &place) {
    std::string text;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(SOURCE_DIR "/") + place.folder)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(place.files, 0) != 0 || entry.path().extension() != place.extension) continue;
        std::ifstream file(entry.path());
        text.append("\n").append(std::istreambuf_iterator<char>(file), {});
    }
    return text;
}

TEST(family_places_test, each_family_is_written_of_wherever_the_others_are) {
    for (const place_t &place : all_places) {
        const std::string text = text_of(place);
        for (const record_family_t &family : all_families()) {
            for (const record_verb_t &verb : verbs_of(family)) {
                std::string command = record_command_text(family, place.is_each_verb ? &verb : nullptr);
                if (place.is_identifier) std::replace(command.begin(), command.end(), ' ', '_');
                EXPECT_NE(text.find(place.before + command + place.after), std::string::npos)
                    << place.folder << "/" << place.files << "*" << place.extension << " lacks " << command;
            }
        }
    }
}

}  // namespace
