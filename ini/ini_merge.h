#pragma once
// Merging INI text into an INI file, as a package installation does with the
// controller's own INI files.

#include <string>
#include <string_view>

namespace kx::ini {

// `target` with the keys of `merge` merged in, written into `merged`. A key of
// `merge` replaces the value and quote of the same key in `target`; a new key
// goes to the end of its section, a new section to the end. Every other key of
// `target` stays, and so do its comments, blank lines and byte-order mark;
// only lines the reader ignores are left out. Returns kOk or kErrorNoMemory.
int MergeText(std::string_view target, std::string_view merge, std::string& merged);

}  // namespace kx::ini
