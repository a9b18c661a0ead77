#include "apps/camclock/views/RowSink.h"

#include "apps/camclock/views/FrameColumns.h"
#include "apps/camclock/views/Output.h"
#include "apps/camclock/views/TableSink.h"

namespace camclock::app {
namespace {

class CsvSink : public RowSink {
public:
    void Begin() override { Output::Standard().Line(CsvHeader()); }
    void Add(const FrameRow& row, const StreamName& of) override {
        Output::Standard().Line(CsvLine(row, of));
    }
    void News(const std::string& text) override { Output::Error().Line("camclock: " + text); }
};

class JsonSink : public RowSink {
public:
    void Add(const FrameRow& row, const StreamName& of) override {
        Output::Standard().Line(JsonLine(row, of));
    }
    void News(const std::string& text) override { Output::Error().Line("camclock: " + text); }
};

}  // namespace

std::unique_ptr<RowSink> MakeRowSink(OutputFormat format, bool inPlace) {
    switch (format) {
    case OutputFormat::kTable: break;
    case OutputFormat::kCsv: return std::make_unique<CsvSink>();
    case OutputFormat::kJson: return std::make_unique<JsonSink>();
    }
    return std::make_unique<TableSink>(inPlace);
}

}  // namespace camclock::app
