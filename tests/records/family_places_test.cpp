/* Checks that the code, documents and seeds that are written by hand mention each family of commands. Nothing else
 * would notice that a new family is missing there. */
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "records/families.h"

namespace {

struct place_t {
    const char *folder;
    const char *files; /* beginning of the file names */
    const char *ends;  /* end of the file names */
    std::string (*mark)(const std::string &family,
                        const std::string &verb); /* a text that one of the files must have */
    bool is_each_verb; /* a mark is needed for each verb; else one verb is enough for a family */
};

std::string line_of(const std::string &family, const std::string &) {
    return "\n" + family + " ";
}
std::string name_of(std::string command) {
    std::replace(command.begin(), command.end(), ' ', '_');
    return command;
}
std::string method_of(const std::string &family, const std::string &verb) {
    return "auto " + name_of(family + " " + verb) + "(";
}
std::string setter_of(const std::string &family, const std::string &) {
    return " X(" + name_of(family) + ",";
}
std::string synopsis_of(const std::string &family, const std::string &) {
    return "\n.B natctl " + family + " ";
}

const place_t places[] = {
    {"include/fwx_nat64", "fwx_nat64", ".hpp", method_of, true},
    {"bindings/python/src", "commands", ".c", setter_of, false},
    {"docs/man", "natctl", ".1", synopsis_of, false},
    {"examples", "", ".natctl", line_of, false},
    {"fuzz/seeds", "document-", ".txt", line_of, false},
};

std::string text_of(const place_t &place) {
    std::string text;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(SOURCE_DIR "/") + place.folder)) {
        const std::string name = entry.path().filename().string();
        const std::string ends = place.ends;
        const bool is_of_place = name.rfind(place.files, 0) == 0 && name.size() > ends.size() &&
                                 name.compare(name.size() - ends.size(), ends.size(), ends) == 0;
        if (!is_of_place) continue;
        std::ifstream file(entry.path());
        text.append("\n").append(std::istreambuf_iterator<char>(file), {});
    }
    return text;
}

TEST(family_places_test, each_family_is_written_of_wherever_the_others_are) {
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    for (const place_t &place : places) {
        const std::string text = text_of(place);
        for (const record_family_t *family = families; family != families + count; ++family) {
            const std::string name = record_command_text(*family, nullptr);
            const auto is_written = [&](const record_verb_t &verb) {
                return text.find(place.mark(name, std::string(verb.word))) != std::string::npos;
            };
            const record_verb_t *end = family->verbs + family->verb_count;
            const bool is_there = place.is_each_verb ? std::all_of(family->verbs, end, is_written)
                                                     : std::any_of(family->verbs, end, is_written);
            EXPECT_TRUE(is_there) << place.folder << "/" << place.files << "*" << place.ends << " lacks " << name;
        }
    }
}

}  // namespace
