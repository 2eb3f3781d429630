// Text encoding of a drawing: UTF-8 from AC1021 on, before that the code
// page of $DWGCODEPAGE with "\U+XXXX" escapes for characters outside it.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace dxf {

class UnknownCodePage : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

class Codec {
public:
    // Code UTF-8, for new drawings and AC1021+.
    Codec();
    // acadver: "$ACADVER" value ("AC1015"); codepage: "$DWGCODEPAGE" value
    // ("ANSI_1252", "dos850", "MAC-ROMAN", "ASCII", "UNDEFINED", or empty).
    // Empty, "ASCII" and "UNDEFINED" mean Windows-1252. Throws UnknownCodePage
    // for a name it does not know.
    static Codec forDrawing(std::string_view acadver, std::string_view codepage);

    bool isUtf8() const { return utf8_; }
    const std::string& codePage() const { return name_; }

    // File bytes to text. "\U+XXXX" escapes are decoded for every version
    // (writers put them in AC1021+ files too); invalid bytes never throw.
    std::wstring decode(std::string_view raw) const;
    // Text to file bytes. Characters the code page cannot hold become
    // "\U+XXXX" (before AC1021).
    std::string encode(std::wstring_view text) const;

private:
    bool utf8_ = true;
    std::string name_ = "UTF-8";
    std::shared_ptr<const struct CodeTable> table_;  // code pages (one- and two-byte)
};

// UTF-8 <-> wide text at the edges (command line, logs).
std::string toUtf8(std::wstring_view s);
std::wstring fromUtf8(std::string_view s);

}  // namespace dxf
