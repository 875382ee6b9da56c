#include "tests/daemon/test_image.h"

#include <archive.h>
#include <archive_entry.h>

#include <stdexcept>

namespace kx::test {

void WriteTestImage(const std::string& path, const std::vector<TestImageEntry>& entries) {
  archive* image = archive_write_new();
  archive_write_add_filter_gzip(image);
  archive_write_set_format_pax_restricted(image);
  if (archive_write_open_filename(image, path.c_str()) != ARCHIVE_OK) throw std::runtime_error("cannot write " + path);
  for (const TestImageEntry& entry : entries) {
    archive_entry* header = archive_entry_new();
    archive_entry_copy_pathname(header, entry.path.c_str());
    archive_entry_set_perm(header, entry.type == 'd' ? 0755 : 0644);
    archive_entry_set_mtime(header, 1700000000, 0);
    const char type = entry.type;
    archive_entry_set_filetype(header, type == 'd'   ? AE_IFDIR
                                       : type == 'l' ? AE_IFLNK
                                       : type == 'c' ? AE_IFCHR
                                                     : AE_IFREG);
    if (type == 'f') archive_entry_set_size(header, static_cast<la_int64_t>(entry.content.size()));
    if (type == 'l') archive_entry_copy_symlink(header, entry.content.c_str());
    if (type == 'h') archive_entry_copy_hardlink(header, entry.content.c_str());
    archive_write_header(image, header);
    if (entry.type == 'f') archive_write_data(image, entry.content.data(), entry.content.size());
    archive_entry_free(header);
  }
  archive_write_close(image);
  archive_write_free(image);
}

}  // namespace kx::test
