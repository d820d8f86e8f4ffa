#pragma once

// Input text with the name it is reported under, and positions in it.
//
// A large regular file is mapped rather than read: its pages are the page cache's, and
// release_before() hands back those a reader has passed, so that a long script costs memory for
// the commands being read, not for the whole text. A released page is read from the file again
// if it is looked at (the definitions of a script view their text). The file must not be
// truncated while it is mapped. Copies share the text.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "vorn/smt/source_pos.h"

namespace vorn::io {

struct SourceText {
    std::string name;       // as given on the command line; "<stdin>" for "-"
    std::string_view text;  // valid while this or a copy lives
    bool standard_input = false;

    SourceText() = default;
    // Text held in memory.
    SourceText(std::string name, std::string text, bool standard_input = false);

    // Reads a file, or standard input for "-". A directory, an unreadable path or more than
    // kMaxInputBytes is an ParseError at 1:1.
    static SourceText read(const std::string& path);

    // The text before `offset` will not be looked at soon: a mapped file's pages go back to the
    // system. Text held in memory stays.
    void release_before(std::size_t offset) const;

  private:
    struct Storage;
    std::shared_ptr<Storage> storage_;
};

}  // namespace vorn::io
