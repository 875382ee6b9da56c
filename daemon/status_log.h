#pragma once
// What the daemon tells the people who look after the controller. Each message
// goes to standard error, to the system log (errors always, the rest when the
// log mask asks for information) and to the installation status log
// "log/installationStatus.log" of the configuration directory, which each
// action starts afresh so that it tells the story of the last one.

#include <string>

namespace kx::daemon {

// Empties the installation status log and writes `title` as its first line.
void StartStatusLog(const std::string& title);

void ReportInfo(const std::string& text);
void ReportError(const std::string& text);

}  // namespace kx::daemon
