#include "data/processing_history.h"

namespace tavrin {

std::optional<std::filesystem::path> ProcessingHistory::cleanedFileURL() const {
    if (!cleanedFilePath) return std::nullopt;
    return std::filesystem::path(*cleanedFilePath);
}

double ProcessingHistory::sizeReductionPercent() const {
    if (originalSize < 1) return 0.0;
    return static_cast<double>(bytesSaved()) / static_cast<double>(originalSize) * 100.0;
}

const TableSpec& ProcessingHistory::table() {
    static const TableSpec table{
        "ProcessingHistory",
        {
            {"id", ColumnKind::text},
            {"fileName", ColumnKind::text},
            {"processedAt", ColumnKind::text},
            {"originalSize", ColumnKind::integer},
            {"cleanedSize", ColumnKind::integer},
            {"removedItemCount", ColumnKind::integer},
            {"presetName", ColumnKind::text},
            {"duration", ColumnKind::real},
            {"cleanedFilePath", ColumnKind::text, true},
            {"originalFilePath", ColumnKind::text, true},
            {"outputRetained", ColumnKind::integer, false, "1"},
        },
        // `HistoryQueries::recent` reads the newest first.
        {{"ProcessingHistory_processedAt", "\"processedAt\""}},
        {},
        RecordCodec<ProcessingHistory>::toRow,
        RecordCodec<ProcessingHistory>::fromRow,
        RecordCodec<ProcessingHistory>::assignRow,
    };
    return table;
}

StoreRow ProcessingHistory::toRow() const {
    using namespace storeValue;
    return {uuid(id),          text(fileName),        date(processedAt),
            integer(originalSize), integer(cleanedSize), integer(removedItemCount),
            text(presetName),  real(duration),        optionalText(cleanedFilePath),
            optionalText(originalFilePath), flag(outputRetained)};
}

ProcessingHistory ProcessingHistory::fromRow(const StoreRow& row) {
    using namespace storeValue;
    ProcessingHistory h;
    h.id = asUuid(row.at(0));
    h.fileName = asText(row.at(1));
    h.processedAt = asDate(row.at(2));
    h.originalSize = asInteger(row.at(3));
    h.cleanedSize = asInteger(row.at(4));
    h.removedItemCount = asInteger(row.at(5));
    h.presetName = asText(row.at(6));
    h.duration = asReal(row.at(7));
    h.cleanedFilePath = asOptionalText(row.at(8));
    h.originalFilePath = asOptionalText(row.at(9));
    h.outputRetained = asFlag(row.at(10), true);
    return h;
}

}  // namespace tavrin
