#pragma once

#include <cstdint>
#include <string>

namespace pmssandbox {

/// Something a venue can charge to a folio.
struct CatalogItem {
    std::string id;
    std::string name;
    std::string postingCode;
    std::int64_t priceCents = 0;
};

}  // namespace pmssandbox
