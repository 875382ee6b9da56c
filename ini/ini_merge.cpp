#include "ini/ini_merge.h"

#include <new>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini/ini_syntax.h"
#include "ini/ini_writer.h"

namespace kx::ini {

int MergeText(std::string_view target, std::string_view merge, std::string& merged) {
  try {
    // Written with comments (and blank lines), and with a mark when it had one.
    const bool marked = target.substr(0, kByteOrderMark.size()) == kByteOrderMark;
    Document document(marked ? kOptionComments | kOptionByteOrderMark : kOptionComments);
    Document additions;
    int result = ParseText(target, document);
    if (result >= 0) result = ParseText(merge, additions);
    for (const Section& section : additions.Sections()) {
      for (const Key& key : section.keys) {
        if (result >= 0) result = document.SetText(section.name, key.name, key.value, key.quote);
      }
    }
    if (result < 0) return result;
    return WriteText(document, merged);
  } catch (const std::bad_alloc&) {
    return kErrorNoMemory;
  }
}

}  // namespace kx::ini
