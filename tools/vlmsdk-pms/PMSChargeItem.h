#pragma once

#include <string>

/// One item to charge: the venue's catalog identifier and how many.
struct PMSChargeItem {
    std::string itemID;
    int quantity = 1;
};
