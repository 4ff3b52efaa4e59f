// Opens addresses in the default browser.
#pragma once

#include <functional>
#include <string>

namespace nuveqcam {

// Opens an address asynchronously. The function returns true once opening has failed; call it from time to
// time. Other users can read the address in the list of processes.
std::function<bool()> OpenBrowser(const std::string& address);

}  // namespace nuveqcam
