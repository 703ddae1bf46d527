// Replies from anywhere (status and body) through every operation, as the transport hands them over:
// exactly one completion, on the main thread, never a result and an error together, and no result for a
// status outside 2xx.
#include "FuzzOperations.h"
#include "FuzzRequestManager.h"

#include <JSON/VLMSDKJSONReader.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) return 0;
    static const auto manager = std::make_shared<FuzzRequestManager>();
    static const VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>("http://127.0.0.1:1/"), manager);
    static vlmsdk::detail::VLMSDKJSONReader reader;

    const auto& operation = fuzzOperations()[data[0] % fuzzOperations().size()];
    const long status = 100 + ((data[1] << 8) | data[2]) % 500;
    std::string body(reinterpret_cast<const char*>(data) + 3, size - 3);

    FuzzRequestManager::Reply reply;
    reply.response = std::make_shared<const VLMSDKURLResponse>("http://127.0.0.1:1/", status);
    if (body.find_first_not_of(" \t\r\n") != std::string::npos) {
        auto read = reader.read(body);
        if (read.failure == vlmsdk::detail::VLMSDKJSONReader::Failure::None) {
            reply.json = std::move(read.reply);
        } else {
            reply.error = VLMError::errorWithCode(VLMErrorCode::InvalidResponse, kVLMSDKResponseErrorDomain,
                                                  "The reply is not JSON.", __func__, __FILE__);
        }
    }
    manager->setReply(std::move(reply));

    FuzzOutcome outcome;
    operation.start(api, "rsv_1", outcome);
    fuzzRequire(outcome.completions == 1 && !outcome.offMainThread);
    fuzzRequire(!(outcome.result && outcome.error));
    if (status < 200 || status > 299) fuzzRequire(!outcome.result && outcome.error);
    return 0;
}
