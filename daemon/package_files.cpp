#include "daemon/package_files.h"

#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <system_error>

#include "daemon/rooted_target.h"
#include "daemon/status_log.h"
#include "daemon/tar_archive.h"
#include "daemon/update_plan.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "platform/ownership.h"

namespace kx::daemon {
namespace {

using catalogue::Codebase;
using catalogue::CodebaseType;
using catalogue::Package;
using Kind = FileOperation::Kind;

[[noreturn]] void Refuse(const Package& package, const std::string& problem) {
  throw UpdateRefused(exchange::kResultUpdateBlocked, Describe(package) + ": " + problem);
}

bool IsDigits(const std::string& text) {
  return !text.empty() && text.size() <= 9 && text.find_first_not_of("0123456789") == std::string::npos;
}

// "rwxr-xr-x" or octal digits; empty gives `fallback`.
mode_t ParsePermissions(const Package& package, const std::string& text, mode_t fallback) {
  if (text.empty()) return fallback;
  if (text.size() == 9) return static_cast<mode_t>(platform::SymbolicModeToMode(text));
  if (text.size() <= 4 && text.find_first_not_of("01234567") == std::string::npos) {
    return static_cast<mode_t>(std::stoul(text, nullptr, 8));
  }
  Refuse(package, "PERMISSIONS \"" + text + "\" is neither \"rwxr-xr-x\" nor octal");
}

template <class Id>
Id ParseId(const Package& package, const std::string& name, int64_t (*lookUp)(const std::string&), const char* what) {
  if (name.empty()) return static_cast<Id>(-1);
  const int64_t id = lookUp(name);
  if (id >= 0) return static_cast<Id>(id);
  if (IsDigits(name)) return static_cast<Id>(std::stoul(name));
  Refuse(package, std::string("unknown ") + what + " \"" + name + "\"");
}

FileAttributes Attributes(const Package& package, const std::string& permissions, const std::string& owner,
                          const std::string& group, mode_t fallbackMode) {
  FileAttributes attributes;
  attributes.mode = ParsePermissions(package, permissions, fallbackMode);
  attributes.owner = ParseId<uid_t>(package, owner, platform::GetUserID, "OWNER");
  attributes.group = ParseId<gid_t>(package, group, platform::GetGroupID, "GROUP");
  return attributes;
}

ResolvedTarget Resolve(const Package& package, const std::string& target) {
  try {
    return ResolveTarget(target);
  } catch (const std::exception& error) {
    Refuse(package, error.what());
  }
}

// A source file of the package: inside its directory, and a regular file
// reached without a link (file_operations.h), for a link could lead to what
// the package has no business installing.
std::string SourceFile(const Package& package, const std::string& fileName, struct stat& info) {
  const std::string directory = tal::CleanPath(package.sourcePath);
  std::string path =
      tal::CleanPath(!fileName.empty() && fileName.front() == '/' ? fileName : tal::JoinPath(directory, fileName));
  if (fileName.empty() || path.compare(0, directory.size() + 1, directory + "/") != 0) {
    Refuse(package, "the file \"" + fileName + "\" lies outside the package's directory " + directory);
  }
  try {
    static_cast<void>(OpenRegularFile(path, info));
  } catch (const std::system_error& error) {
    Refuse(package,
           error.code() == std::errc::no_such_file_or_directory ? "the file " + path + " is missing" : error.what());
  }
  return path;
}

// The file list of a package with TAR codebases: one name per package, whatever
// characters its NAME holds.
std::string FileListPath(const Package& package) {
  std::string name;
  for (const char c : package.name) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '{' || c == '}' || c == '-' || c == '_' || c == '.') {
      name += static_cast<char>(std::toupper(byte));  // NAMEs compare without regard to case
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", byte);
      name += escaped;
    }
  }
  return tal::JoinPath(tal::JoinPath(exchange::ConfigurationDirectory(), "installed-files"), name + ".list");
}

bool HasTarCodebase(const Package& package) {
  for (const Codebase& codebase : package.codebases) {
    if (codebase.type == CodebaseType::kTar) return true;
  }
  return false;
}

void AddArchive(const Package& package, const Codebase& codebase, const std::string& scratch,
                std::vector<FileOperation>& operations, std::string& fileList) {
  struct stat info {};
  const std::string archive = SourceFile(package, codebase.fileName, info);
  std::vector<ArchiveEntry> entries;
  try {
    entries = UnpackArchive(archive, scratch);
  } catch (const std::exception& error) {
    Refuse(package, error.what());
  }
  const FileAttributes ownership = Attributes(package, "", codebase.owner, codebase.group, 0);
  for (const ArchiveEntry& entry : entries) {
    FileOperation operation;
    operation.targetPath = Resolve(package, codebase.target + "/" + entry.relativePath).targetPath;
    operation.attributes = ownership;
    operation.attributes.mode = entry.mode;
    switch (entry.type) {
      case ArchiveEntry::Type::kDirectory:
        operation.kind = Kind::kDirectory;
        break;
      case ArchiveEntry::Type::kFile:
        operation.kind = Kind::kCopy;
        operation.content = entry.hostPath;
        break;
      case ArchiveEntry::Type::kSymlink:
        operation.kind = Kind::kSymlink;
        operation.content = entry.linkText;
        break;
    }
    if (operation.kind != Kind::kDirectory) fileList += operation.targetPath + "\n";
    operations.push_back(std::move(operation));
  }
}

}  // namespace

std::vector<FileOperation> PrepareInstallation(const Package& package, const std::string& scratchDirectory) {
  std::vector<FileOperation> operations;
  std::string fileList;
  int archives = 0;
  for (const Codebase& codebase : package.codebases) {
    if (codebase.type == CodebaseType::kTar) {
      AddArchive(package, codebase, tal::JoinPath(scratchDirectory, std::to_string(++archives)), operations, fileList);
      continue;
    }
    struct stat info {};
    FileOperation operation;
    operation.kind = Kind::kCopy;
    operation.content = SourceFile(package, codebase.fileName, info);
    operation.targetPath = Resolve(package, codebase.target).targetPath;
    operation.attributes =
        Attributes(package, codebase.permissions, codebase.owner, codebase.group, info.st_mode & 0777);
    operations.push_back(std::move(operation));
  }
  for (const catalogue::Symlink& symlink : package.symlinks) {
    if (symlink.source.empty() || symlink.source.find('\0') != std::string::npos) {
      Refuse(package, "the link " + symlink.link + " points nowhere");
    }
    FileOperation operation;
    operation.kind = Kind::kSymlink;
    operation.targetPath = Resolve(package, symlink.link).targetPath;
    operation.content = symlink.source;
    operation.attributes = Attributes(package, "", symlink.owner, symlink.group, 0777);
    operations.push_back(std::move(operation));
  }
  for (const catalogue::MergeIni& merge : package.mergeIni) {
    FileOperation operation;
    operation.kind = Kind::kMergeIni;
    const ResolvedTarget target = Resolve(package, merge.target);
    struct stat existing {};
    // Merging reads the file first, and a link would have it read what it leads to.
    if (LStat(target.hostPath, existing) && S_ISLNK(existing.st_mode)) {
      Refuse(package, "MERGEINI into " + target.targetPath + ", which is a symbolic link");
    }
    operation.targetPath = target.targetPath;
    operation.content = merge.text;
    if (operation.content.empty() && !merge.fileName.empty()) {
      struct stat info {};
      operation.content = ReadRegularFile(SourceFile(package, merge.fileName, info), info);
    }
    operations.push_back(std::move(operation));
  }
  if (archives > 0) {
    FileOperation operation;
    operation.kind = Kind::kText;
    operation.hostPath = FileListPath(package);
    operation.content = fileList;
    operations.push_back(std::move(operation));
  }
  return operations;
}

std::vector<FileOperation> PrepareRemoval(const Package& package) {
  std::vector<std::string> targets;
  for (const Codebase& codebase : package.codebases) {
    if (codebase.type != CodebaseType::kTar) targets.push_back(codebase.target);
  }
  for (const catalogue::Symlink& symlink : package.symlinks) targets.push_back(symlink.link);
  std::vector<FileOperation> operations;
  if (HasTarCodebase(package)) {
    const std::string fileList = FileListPath(package);
    try {
      tal::TextFileReader reader(fileList);
      for (std::string line; reader.ReadLine(line);) targets.push_back(line);
    } catch (const std::exception&) {
      ReportInfo("warning: " + Describe(package) + " has no readable file list " + fileList +
                 ": the files its archives unpacked stay");
    }
    FileOperation operation;
    operation.kind = Kind::kRemove;
    operation.hostPath = fileList;
    operations.push_back(std::move(operation));
  }
  for (const std::string& target : targets) {
    FileOperation operation;
    operation.kind = Kind::kRemove;
    try {
      operation.targetPath = ResolveTarget(target).targetPath;
    } catch (const std::exception& error) {
      ReportInfo("warning: " + Describe(package) + ": " + error.what() + ": left in place");
      continue;
    }
    operations.push_back(std::move(operation));
  }
  return operations;
}

}  // namespace kx::daemon
