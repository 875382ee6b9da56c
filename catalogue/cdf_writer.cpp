#include "catalogue/cdf_writer.h"

#include <cstdio>

#include "catalogue/status.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"

namespace kx::catalogue {
namespace {

bool PackageFilesExist(const Package& package) {
  for (const Codebase& codebase : package.codebases) {
    const std::string& name = codebase.fileName;
    const std::string path = !name.empty() && name.front() == '/' ? name : tal::JoinPath(package.sourcePath, name);
    if (!tal::PathExists(path)) return false;
  }
  return true;
}

bool WriteAll(FILE* file, const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), file) == text.size();
}

int WriteFile(const std::string& path, const std::string& version, const std::string& body) {
  try {
    const std::string directory = tal::DirectoryPart(path);
    if (!directory.empty()) tal::CreateDirectories(directory);
  } catch (const tal::exception::Exception&) {
    // Opening the file tells whether the directory is usable.
  }
  FILE* file = tal::OpenFile(path, "we", false);
  if (file == nullptr) return status::kIoFailure;
  bool written = WriteAll(file, "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"" + version + "\"?>\n<DEFINITION>\n");
  written = written && WriteAll(file, body);
  written = written && WriteAll(file, "</DEFINITION>\n");
  const bool closed = std::fclose(file) == 0;
  return written && closed ? status::kOk : status::kIoFailure;
}

}  // namespace

std::string CdfDocumentVersion(const std::vector<const Package*>& packages) {
  std::string version = "1.5";
  for (const Package* package : packages) {
    std::string own = CdfFormatVersion(*package);
    if (!NumbersAtLeast(ParseVersionNumbers(version), ParseVersionNumbers(own))) version = std::move(own);
  }
  return version;
}

int WriteCdfDocument(const std::string& path, const std::vector<const Package*>& packages,
                     const cdf::PackageWriteOptions& options) {
  try {
    for (const Package* package : packages) {
      if (!PackageFilesExist(*package)) return status::kIoFailure;
    }
    std::string body;
    for (const Package* package : packages) cdf::WritePackage(body, *package, options);
    return WriteFile(path, CdfDocumentVersion(packages), body);
  } catch (const tal::exception::Exception&) {
    return status::kIoFailure;
  }
}

}  // namespace kx::catalogue
