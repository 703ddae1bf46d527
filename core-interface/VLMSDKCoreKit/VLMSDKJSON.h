#pragma once

#include <nlohmann/json.hpp>

/// The JSON value type of the SDK: reply bodies, request bodies, untyped replies.
using VLMSDKJSON = nlohmann::json;
