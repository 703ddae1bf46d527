#include <Velmora_Meta/VLMUtilities.h>

namespace {

VLMSDKJSON& asObject(VLMSDKJSON& dictionary) {
    if (!dictionary.is_object()) dictionary = VLMSDKJSON::object();
    return dictionary;
}

}  // namespace

void VLMUtilities::error(VLMErrorPtr* error, VLMErrorPtr setError) {
    if (error) *error = std::move(setError);
}

void VLMUtilities::dictionary(VLMSDKJSON& dictionary, const std::optional<std::string>& setObject,
                              std::string_view forKey) {
    if (setObject) asObject(dictionary)[std::string(forKey)] = *setObject;
}

void VLMUtilities::dictionary(VLMSDKJSON& dictionary, const std::optional<double>& setObject,
                              std::string_view forKey) {
    // A number that is not finite is kept as it is: the request builder refuses to send a body holding one,
    // where leaving it out would send a body that no longer says what the caller gave.
    if (setObject) asObject(dictionary)[std::string(forKey)] = *setObject;
}

void VLMUtilities::dictionary(VLMSDKJSON& dictionary, const std::optional<VLMSDKJSON>& setObject,
                              std::string_view forKey) {
    if (setObject) asObject(dictionary)[std::string(forKey)] = *setObject;
}

bool VLMUtilities::string(const std::optional<std::string>& string, const std::optional<std::string>& isEqualToString) {
    return string == isEqualToString;
}
