#include "daemon/software_update.h"

#include <sys/stat.h>

#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "catalogue/cdf_writer.h"
#include "daemon/daemon_settings.h"
#include "daemon/dependency_check.h"
#include "daemon/operation_runner.h"
#include "daemon/package_files.h"
#include "daemon/status_log.h"
#include "daemon/stop_request.h"
#include "daemon/transaction_location.h"
#include "daemon/update_plan.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "kx/tal/path.h"
#include "platform/remove_dir_hierarchy.h"

namespace kx::daemon {
namespace {

using catalogue::Package;

struct PackageWork {
  const Package* package;
  std::vector<FileOperation> operations;
};

struct PreparedUpdate {
  std::vector<PackageWork> removals;
  std::vector<PackageWork> installs;
};

std::string Key(const FileOperation& operation) {
  return operation.targetPath.empty() ? operation.hostPath : operation.targetPath;
}

// Everything is worked out before the first change. A file that the new
// configuration still installs is not removed, whichever package had it.
PreparedUpdate Prepare(const UpdatePlan& plan, const std::string& scratchDirectory) {
  PreparedUpdate prepared;
  std::set<std::string> staying;
  for (const Package* package : plan.installs) {
    const std::string scratch = tal::JoinPath(scratchDirectory, std::to_string(prepared.installs.size() + 1));
    prepared.installs.push_back({package, PrepareInstallation(*package, scratch)});
    for (const FileOperation& operation : prepared.installs.back().operations) staying.insert(Key(operation));
  }
  for (const Package* package : plan.kept) {
    for (const FileOperation& operation : PrepareRemoval(*package)) staying.insert(Key(operation));
  }
  for (const Package* package : plan.removals) {
    PackageWork work{package, {}};
    for (FileOperation& operation : PrepareRemoval(*package)) {
      if (staying.count(Key(operation)) == 0) work.operations.push_back(std::move(operation));
    }
    prepared.removals.push_back(std::move(work));
  }
  return prepared;
}

// The new "config.cdf" in the layout of the CDF writer. Its document writer is
// not used: it insists that every FILENAME exists beside the package, which
// holds in a repository but not for the record of what is installed. Empty
// lines (in an ABSTRACT or INI text) are left out: InstalledComponents ends
// its answer at the first one.
std::string ConfigurationText(const std::vector<const Package*>& packages) {
  std::string body;
  for (const Package* package : packages) catalogue::cdf::WritePackage(body, *package, {});
  std::string text =
      "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"" + catalogue::CdfDocumentVersion(packages) + "\"?>\n<DEFINITION>\n";
  for (size_t start = 0, end; start < body.size(); start = end + 1) {
    end = body.find('\n', start);
    if (end == std::string::npos) end = body.size();
    const std::string_view line(body.data() + start, end - start);
    if (!line.empty() && line != "\r") text.append(line).append("\n");
  }
  return text + "</DEFINITION>\n";
}

FileAttributes ConfigurationAttributes(const std::string& path) {
  struct stat info {};
  if (!LStat(path, info)) return FileAttributes{0644};
  return FileAttributes{static_cast<mode_t>(info.st_mode & 07777), info.st_uid, info.st_gid};
}

int32_t Apply(const UpdatePlan& plan, const PreparedUpdate& prepared, ProgressReporter& progress) {
  const size_t steps = prepared.removals.size() + prepared.installs.size() + 1;
  size_t done = 0;
  const auto advance = [&](const std::string& step) {
    progress.Update(static_cast<int>(10 + 85 * done++ / steps), step);
    ReportInfo(step);
    ThrowIfStopRequested();
  };
  const Transaction::Paths paths = DaemonTransactionPaths();
  Transaction transaction(paths);
  try {
    for (const PackageWork& work : prepared.removals) {
      advance("Removing " + Describe(*work.package));
      for (const FileOperation& operation : work.operations) {
        ThrowIfStopRequested();
        RunOperation(transaction, operation);
      }
    }
    for (const PackageWork& work : prepared.installs) {
      advance("Installing " + Describe(*work.package));
      for (const FileOperation& operation : work.operations) {
        ThrowIfStopRequested();
        RunOperation(transaction, operation);
      }
    }
    advance("Writing the configuration");
    transaction.WriteText(paths.configuration, ConfigurationText(plan.configuration),
                          ConfigurationAttributes(paths.configuration));
    transaction.Commit();
  } catch (const std::exception& error) {
    ReportError(std::string("the installation failed: ") + error.what());
    progress.Update(100, "Rolling back");
    try {
      transaction.RollBack();
      ReportInfo("rolled back: the installed software is as it was before the update");
    } catch (const std::exception& rollBackError) {
      ReportError(rollBackError.what());
    }
    return exchange::kResultFail;
  }
  ReportInfo("the new configuration is in place");
  return exchange::kResultOk;
}

void ReportPlan(const UpdatePlan& plan) {
  std::string text = "plan:";
  for (const Package* package : plan.removals) text += "\n  remove " + Describe(*package);
  for (const Package* package : plan.installs) text += "\n  install " + Describe(*package);
  for (const Package* package : plan.kept) text += "\n  keep " + Describe(*package);
  ReportInfo(text);
}

}  // namespace

std::string UpdateScratchDirectory(const std::string& actionDirectory) {
  return tal::JoinPath(actionDirectory, "unpacked");
}

int32_t RunSoftwareUpdate(const std::string& actionDirectory, ProgressReporter& progress) {
  const std::string scratch = UpdateScratchDirectory(actionDirectory);
  int32_t result = exchange::kResultFail;
  try {
    progress.Update(2, "Reading the catalogues");
    const DaemonSettings settings = LoadDaemonSettings();
    const UpdateCatalogues catalogues(actionDirectory, settings);
    const UpdatePlan plan = catalogues.Plan();
    ReportPlan(plan);
    progress.Update(5, "Checking dependencies");
    CheckUpdate(plan, settings);
    progress.Update(8, "Preparing the packages");
    const PreparedUpdate prepared = Prepare(plan, scratch);
    if (plan.installs.empty() && plan.removals.empty()) {
      ReportInfo("nothing to change");
      result = exchange::kResultOk;
    } else {
      result = Apply(plan, prepared, progress);
    }
  } catch (const UpdateRefused& refusal) {
    ReportError(std::string("update refused, nothing changed: ") + refusal.what());
    result = refusal.Code();
  } catch (const std::exception& error) {
    ReportError(std::string("update failed, nothing changed: ") + error.what());
    result = exchange::kResultFail;
  }
  if (tal::PathExists(scratch) && platform::RemoveDirHierarchy(scratch) != 0) {
    ReportError("cannot remove the update's scratch files in " + scratch);
  }
  return result;
}

}  // namespace kx::daemon
