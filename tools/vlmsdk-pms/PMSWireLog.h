#pragma once

#include <VLMSDKCoreKit/VLMSDKHTTPExchange.h>

#include <iosfwd>
#include <string>
#include <vector>

/// What -v and -vv print on standard error: every HTTP attempt as it crossed the wire.
///
///     * PATCH http://127.0.0.1:8787/guest/reservations/rsv_0003/mobile_checkin -> 409, 118 bytes, 1.4 ms, attempt 1
///
/// At -vv the request's headers and body follow ("> "), then the reply's ("< "). The bearer token and a
/// password in the URL come already hidden from the transport; card ids in JSON bodies are hidden here
/// (PMSRedaction); everything is escaped and cut as PMSShownText does.
class PMSWireLog {
public:
    /// `verbosity` 0 logs nothing, 1 a line per attempt, 2 or more the headers and bodies too.
    PMSWireLog(std::ostream& err, int verbosity);

    /// The request manager's observer; empty at verbosity 0. It runs on the network thread and hands the
    /// lines to the main queue, so that they are written on the main thread before the completion of the
    /// request they describe.
    VLMSDKHTTPExchangeObserver observer() const;

    /// The lines printed for `exchange`.
    static std::vector<std::string> lines(const VLMSDKHTTPExchange& exchange, int verbosity);

private:
    std::ostream& err_;
    int verbosity_;
};
