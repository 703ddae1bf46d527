#include "VLMSDKJSONWriter.h"

#include <cmath>
#include <iterator>
#include <vector>

namespace vlmsdk::detail {

namespace {

struct Frame {
    const VLMSDKJSON* container;
    VLMSDKJSON::const_iterator next;
};

// "/deliverable_items/0/quantity": where the walk stands, for the message.
std::string pointerTo(const std::vector<Frame>& frames) {
    std::string pointer;
    for (const Frame& frame : frames) {
        pointer += '/';
        if (frame.container->is_object()) {
            pointer += frame.next.key();
        } else {
            pointer += std::to_string(std::distance(frame.container->cbegin(), frame.next));
        }
    }
    return pointer.empty() ? "/" : pointer;
}

bool isFiniteOrNoFloat(const VLMSDKJSON& value) {
    return !value.is_number_float() || std::isfinite(value.get<VLMSDKJSON::number_float_t>());
}

}  // namespace

// Depth counts containers, the outermost being 1.
std::optional<std::string> VLMSDKJSONWriter::problemIn(const VLMSDKJSON& json) {
    if (!json.is_structured()) {
        if (isFiniteOrNoFloat(json)) return std::nullopt;
        return "the number at / is not finite";
    }
    std::vector<Frame> frames;
    frames.push_back({&json, json.cbegin()});
    while (!frames.empty()) {
        Frame& top = frames.back();
        if (top.next == top.container->cend()) {
            frames.pop_back();
            if (!frames.empty()) ++frames.back().next;
            continue;
        }
        const VLMSDKJSON& value = *top.next;
        if (value.is_structured()) {
            if (frames.size() >= kVLMSDKMaximumJSONDepth) {
                return "the value at " + pointerTo(frames) + " is nested deeper than " +
                       std::to_string(kVLMSDKMaximumJSONDepth) + " levels";
            }
            frames.push_back({&value, value.cbegin()});
            continue;
        }
        if (!isFiniteOrNoFloat(value)) return "the number at " + pointerTo(frames) + " is not finite";
        ++top.next;
    }
    return std::nullopt;
}

std::optional<std::string> VLMSDKJSONWriter::write(const VLMSDKJSON& json, std::string* problem) {
    if (auto found = problemIn(json)) {
        if (problem) *problem = std::move(*found);
        return std::nullopt;
    }
    try {
        return json.dump();
    } catch (const VLMSDKJSON::type_error& error) {
        if (problem) *problem = std::string("it holds text that is not UTF-8 (") + error.what() + ")";
        return std::nullopt;
    }
}

}  // namespace vlmsdk::detail
