#pragma once

#include "CatalogItem.h"

#include <string>
#include <vector>

namespace pmssandbox {

/// A property: its currency, what it can charge, and the rooms mobile check-in may hand out.
struct Venue {
    std::string id;
    std::string name;
    std::string currency;
    std::vector<CatalogItem> catalog;
    /// In order of preference.
    std::vector<std::string> rooms;
};

}  // namespace pmssandbox
