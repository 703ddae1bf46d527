#include "PMSOutboxReport.h"

#include "PMSFailure.h"
#include "PMSOutputPrinter.h"
#include "PMSRedaction.h"
#include "PMSShownText.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace {

std::string time(std::chrono::system_clock::time_point at) {
    return PMSRecordJSON::time(std::chrono::floor<std::chrono::seconds>(at));
}

// The last error as one escaped line, or what the service said for an outcome.
std::string cause(const VLMErrorPtr& error) { return error ? PMSFailure("", error).cause() : std::string(); }

// Columns padded to their widest cell; the last one is not padded.
std::string table(const std::vector<std::vector<std::string>>& rows, const std::string& indent) {
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) widths[column] = std::max(widths[column], row[column].size());
    }
    std::ostringstream text;
    for (const auto& row : rows) {
        std::string line = indent;
        for (std::size_t column = 0; column < row.size(); ++column) {
            std::string cell = row[column];
            if (column + 1 < row.size()) cell.resize(widths[column] + 2, ' ');
            line += cell;
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        text << line << '\n';
    }
    return text.str();
}

}  // namespace

std::string PMSOutboxReport::operation(const VLMSDKOutboxItem& item) {
    return std::string(VLMSDKOutboxOperationName(item.operation)) + " " + PMSShownText::line(item.reservationID);
}

std::string PMSOutboxReport::details(const VLMSDKOutboxItem& item) {
    const VLMSDKJSON& body = item.parameters;
    if (!body.is_object()) return "";
    std::string text;
    switch (item.operation) {
    case VLMSDKOutboxOperation::Confirm:
        text = body.value("notify_me", true) ? "--notify" : "--no-notify";
        break;
    case VLMSDKOutboxOperation::Pay: {
        const auto amount = body.value("amount", 0.0);
        const auto currency = body.value("currency", "");
        text = PMSOutputPrinter::amount(amount, currency.empty() ? std::nullopt : std::optional<std::string>(currency)) +
               ", card " + PMSRedaction::cardID(body.value("credit_card_id", ""));
        break;
    }
    case VLMSDKOutboxOperation::Charge:
        for (const auto& charged : body.value("deliverable_items", VLMSDKJSON::array())) {
            if (!charged.is_object()) continue;
            const double quantity = charged.value("quantity", 1.0);
            text += (text.empty() ? "" : " ") + charged.value("item_id", std::string("?")) + ":" +
                    std::to_string(std::llround(quantity));
        }
        break;
    case VLMSDKOutboxOperation::MobileCheckin:
    case VLMSDKOutboxOperation::MobileCheckout: break;
    }
    return PMSShownText::line(text);
}

const char* PMSOutboxReport::kindName(VLMSDKOutboxOutcome::Kind kind) {
    switch (kind) {
    case VLMSDKOutboxOutcome::Kind::Succeeded: return "succeeded";
    case VLMSDKOutboxOutcome::Kind::Failed: return "failed";
    case VLMSDKOutboxOutcome::Kind::Expired: return "expired";
    case VLMSDKOutboxOutcome::Kind::Cancelled: return "cancelled";
    }
    return "unknown";
}

PMSJSON PMSOutboxReport::item(const VLMSDKOutboxItem& item) {
    std::optional<PMSJSON> parameters = PMSRedaction::hiddenCardsDocument(item.parameters.dump());
    return {
        {"id", item.id},
        {"operation", VLMSDKOutboxOperationName(item.operation)},
        {"reservationID", PMSShownText::cut(item.reservationID)},
        {"parameters", parameters ? *parameters : PMSJSON(nullptr)},
        {"attempts", item.attempts},
        {"enqueuedAt", time(item.enqueuedAt)},
        {"nextAttemptAt", item.nextAttemptAt ? PMSJSON(time(*item.nextAttemptAt)) : PMSJSON(nullptr)},
        {"lastError", item.lastError.empty() ? PMSJSON(nullptr) : PMSJSON(PMSShownText::cut(item.lastError))},
    };
}

PMSJSON PMSOutboxReport::outcome(const VLMSDKOutboxOutcome& outcome) {
    PMSJSON document = item(outcome.item);
    document["outcome"] = kindName(outcome.kind);
    document["error"] = outcome.error ? PMSJSON(cause(outcome.error)) : PMSJSON(nullptr);
    document["redelivered"] = outcome.redelivered;
    return document;
}

std::string PMSOutboxReport::listText(const std::vector<VLMSDKOutboxItem>& pending,
                                      const std::vector<VLMSDKOutboxOutcome>& outcomes, const std::string& file) {
    std::string text;
    if (pending.empty()) {
        text = "No item waits in " + file + ".\n";
    } else {
        text = std::to_string(pending.size()) + (pending.size() == 1 ? " item waits" : " items wait") + " in " + file +
               ":\n";
        std::vector<std::vector<std::string>> rows{
            {"Item", "Operation", "Reservation", "Attempts", "Enqueued", "Details", "Last error"}};
        for (const auto& each : pending) {
            rows.push_back({std::to_string(each.id), VLMSDKOutboxOperationName(each.operation),
                            PMSShownText::line(each.reservationID), std::to_string(each.attempts), time(each.enqueuedAt),
                            details(each), PMSShownText::line(each.lastError, PMSShownText::kErrorLimit)});
        }
        text += table(rows, "  ");
    }
    if (!outcomes.empty()) {
        text += std::to_string(outcomes.size()) + (outcomes.size() == 1 ? " outcome waits" : " outcomes wait") +
                " to be shown by 'vlmsdk-pms outbox send':\n";
        std::vector<std::vector<std::string>> rows;
        for (const auto& each : outcomes) {
            const std::string why = cause(each.error);
            rows.push_back({"Item " + std::to_string(each.item.id), operation(each.item),
                            kindName(each.kind) + (why.empty() ? "" : ": " + why)});
        }
        text += table(rows, "  ");
    }
    return text;
}

std::string PMSOutboxReport::itemNumbers(const std::vector<std::int64_t>& ids) {
    std::string text = ids.size() == 1 ? "item " : "items ";
    for (std::size_t i = 0; i < ids.size(); ++i) text += (i ? ", " : "") + std::to_string(ids[i]);
    return text;
}
