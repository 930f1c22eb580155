/* Prints the template files named by its arguments, with every WIRE_ word replaced by its value. */
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "wire/documents/words.h"

namespace {

std::string content(const char *path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

int main(int argc, char **argv) {
    words_t words = layout_words();
    words.merge(page_words(words));
    words.merge(dissector_words());
    for (char **path = argv + 1; path != argv + argc; ++path) {
        try {
            std::fputs(filled(content(*path), words).c_str(), stdout);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "%s: %s\n", *path, error.what());
            return 1;
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
