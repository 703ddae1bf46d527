#pragma once

// Client (p) of vlmsdk-bench-fetch: a REST client in the shape code generators emit over cpprestsdk (an
// API class whose operation returns a task of a model, models filled from web::json::value field by field).
// Built only when cpprestsdk is found.

#include "FetchDriver.h"

#include <memory>
#include <string>

namespace vlmsdk::bench {

/// Sets cpprestsdk's shared thread pool to `threads` threads. Call it once, before any request; without it
/// the pool has the library's default size.
void sizeGeneratedStylePool(std::size_t threads);

/// A driver that fetches the reservation at `baseURL` with the generated-style client; `label` names it.
std::unique_ptr<Driver> makeGeneratedStyleDriver(const std::string& baseURL, const char* label);

}  // namespace vlmsdk::bench
