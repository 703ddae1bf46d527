#pragma once

#include <string>

namespace pmssandbox {

/// dashboard/index.html as it was when the library was built: the page the service shows at "/".
class EmbeddedDashboard {
public:
    static const std::string& text();
};

}  // namespace pmssandbox
