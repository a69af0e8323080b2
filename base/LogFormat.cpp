#include "base/LogFormat.h"

namespace logging {

namespace {

void AppendDigits(Message& message, const Conversion& conversion, uint64_t magnitude, size_t minDigits) {
    switch (conversion.kind) {
        case Conversion::Kind::Hex:
            return message.AppendNumber(magnitude, 16, minDigits);
        case Conversion::Kind::UpperHex:
            return message.AppendNumber(magnitude, 16, minDigits, "0123456789ABCDEF");
        default:
            return message.AppendNumber(magnitude, 10, minDigits);
    }
}

// The number is cut to the bits of its conversion.
void AppendNumber(Message& message, const Conversion& conversion, uint64_t number) {
    const int unused = 64 - conversion.bits;
    const auto value = static_cast<int64_t>(number << unused) >> unused;
    if (conversion.kind == Conversion::Kind::Signed && value < 0) {
        message.Append("-");
        AppendDigits(message, conversion, 0 - static_cast<uint64_t>(value),
                     conversion.minDigits - (conversion.countsSign ? 1 : 0));
    } else {
        AppendDigits(message, conversion, number << unused >> unused, conversion.minDigits);
    }
}

}  // namespace

Message Assemble(const FormatView& format, std::initializer_list<Value> values) {
    Message message;
    size_t done = 0;
    const Conversion* conversion = format.conversions;
    for (const Value& value : values) {
        message.Append({format.text + done, conversion->textEnd - done});
        done = conversion->textEnd;
        if (conversion->bits == 0) {
            message.Append(value.text);
        } else {
            AppendNumber(message, *conversion, value.number);
        }
        ++conversion;
    }
    message.Append({format.text + done, format.size - done});
    return message;
}

}  // namespace logging
