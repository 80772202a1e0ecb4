// setting_checks.h: settings that are texts, on the command line and in the configuration file.
#ifndef DCH_SERVICE_SETTING_CHECKS_H
#define DCH_SERVICE_SETTING_CHECKS_H

#include <string>

namespace dch {

// Each returns what is wrong with the text, nothing when it is good.
std::string checkAddress(const std::string& text);
std::string checkInstanceName(const std::string& text);
std::string checkFileName(const std::string& text);
std::string checkWebAddress(const std::string& text);
std::string checkHostName(const std::string& text);
std::string checkSiteName(const std::string& text);
std::string checkLinkServer(const std::string& text);

}  // namespace dch

#endif  // DCH_SERVICE_SETTING_CHECKS_H
