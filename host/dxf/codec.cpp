// Drawing text encodings. Nothing read from a file may be lost on the way
// back, so bytes that do not decode become private characters that encode to
// the same bytes again:
//  - code pages: a byte that starts no character becomes U+F700+b (U+DC00+b
//    for pages that use U+F700.. themselves, such as CP950);
//  - UTF-8: an invalid byte becomes U+DC80+b, as Python's surrogateescape.
#include "host/dxf/codec.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include <iconv.h>

namespace dxf {

// A code page of one- and two-byte characters (every page a drawing can
// name), as lookups built once from iconv. Tables rather than iconv calls per
// string: they are fast, they know where each character starts, and they let
// sequences that iconv would not write back the same way be kept as bytes.
struct CodeTable {
    std::array<wchar_t, 256> single{};        // 0: not a character on its own
    std::array<std::uint8_t, 256> leadRow{};  // 0: not a lead byte, else row + 1
    std::vector<wchar_t> pairs;               // 256 per lead byte; 0: undefined
    bool asciiIdentity = true;
    char32_t rawBase = 0xF700;  // undefined byte b decodes to rawBase + b
    // Character -> bytes: one byte, or (lead << 8 | trail) | kPair.
    std::vector<std::pair<char32_t, std::uint32_t>> encode;

    static constexpr std::uint32_t kPair = 0x10000;
    // Only bytes that are no character: U+F741 stays a character in cp1252.
    bool isRaw(char32_t c) const {
        return c >= rawBase && c < rawBase + 256 && c != rawBase && single[c - rawBase] == 0;
    }
};

namespace {

constexpr char32_t kPrivateBase = 0xF700;
constexpr char32_t kSurrogateBase = 0xDC00;  // + byte 0x80..0xFF in UTF-8

bool isSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

class Iconv {
public:
    Iconv(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
    ~Iconv() {
        if (ok()) iconv_close(cd_);
    }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;
    bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

    // Converts all of `in`; false when iconv refuses any of it. Pages that
    // compose characters (CP1258) hold the last one back until the flush.
    bool convert(std::string_view in, char* out, std::size_t& outLen, bool& incomplete) const {
        iconv(cd_, nullptr, nullptr, nullptr, nullptr);
        char* ip = const_cast<char*>(in.data());
        std::size_t il = in.size();
        char* op = out;
        std::size_t ol = outLen;
        incomplete = false;
        if (iconv(cd_, &ip, &il, &op, &ol) == static_cast<std::size_t>(-1)) {
            incomplete = errno == EINVAL;
            return false;
        }
        if (iconv(cd_, nullptr, nullptr, &op, &ol) == static_cast<std::size_t>(-1)) return false;
        outLen = static_cast<std::size_t>(op - out);
        return il == 0;
    }

private:
    iconv_t cd_;
};

std::string upper(std::string_view s) {
    std::string u(s);
    for (char& c : u) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return u;
}

std::string_view trimBlanks(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// DXF code page name -> iconv name.
const char* lookupPage(std::string_view name) {
    static constexpr std::pair<std::string_view, const char*> kPages[] = {
        {"", "CP1252"},
        {"ASCII", "CP1252"},
        {"UNDEFINED", "CP1252"},
        {"ANSI_874", "CP874"},
        {"ANSI_932", "CP932"},
        {"ANSI_936", "CP936"},
        {"ANSI_949", "CP949"},
        {"ANSI_950", "CP950"},
        {"ANSI_1250", "CP1250"},
        {"ANSI_1251", "CP1251"},
        {"ANSI_1252", "CP1252"},
        {"ANSI_1253", "CP1253"},
        {"ANSI_1254", "CP1254"},
        {"ANSI_1255", "CP1255"},
        {"ANSI_1256", "CP1256"},
        {"ANSI_1257", "CP1257"},
        {"ANSI_1258", "CP1258"},
        {"ANSI_1361", "JOHAB"},
        {"DOS437", "CP437"},
        {"DOS850", "CP850"},
        {"DOS852", "CP852"},
        {"DOS855", "CP855"},
        {"DOS857", "CP857"},
        {"DOS860", "CP860"},
        {"DOS861", "CP861"},
        {"DOS863", "CP863"},
        {"DOS864", "CP864"},
        {"DOS865", "CP865"},
        {"DOS866", "CP866"},
        {"DOS869", "CP869"},
        {"DOS932", "CP932"},
        {"MAC-ROMAN", "MACINTOSH"},
        // The DOS-era East Asian names; the Windows pages are supersets.
        {"BIG5", "CP950"},
        {"GB2312", "CP936"},
        {"KSC5601", "CP949"},
        {"JOHAB", "JOHAB"},
        {"ISO8859_1", "ISO-8859-1"},
        {"ISO8859_2", "ISO-8859-2"},
        {"ISO8859_3", "ISO-8859-3"},
        {"ISO8859_4", "ISO-8859-4"},
        {"ISO8859_5", "ISO-8859-5"},
        {"ISO8859_6", "ISO-8859-6"},
        {"ISO8859_7", "ISO-8859-7"},
        {"ISO8859_8", "ISO-8859-8"},
        {"ISO8859_9", "ISO-8859-9"},
    };
    const std::string key = upper(name);
    for (const auto& [dxfName, iconvName] : kPages) {
        if (dxfName == key) return iconvName;
    }
    return nullptr;
}

// The one character `bytes` decode to, or 0.
wchar_t decodeOne(const Iconv& cd, std::string_view bytes, bool& incomplete) {
    wchar_t buf[4];
    std::size_t len = sizeof buf;
    if (!cd.convert(bytes, reinterpret_cast<char*>(buf), len, incomplete) || len != sizeof(wchar_t)) return 0;
    return buf[0];
}

std::shared_ptr<const CodeTable> buildTable(const char* iconvName) {
    Iconv toWide("WCHAR_T", iconvName);
    Iconv fromWide(iconvName, "WCHAR_T");
    if (!toWide.ok() || !fromWide.ok()) throw UnknownCodePage(std::string("code page not available: ") + iconvName);
    auto table = std::make_shared<CodeTable>();
    CodeTable& t = *table;
    std::vector<std::pair<char32_t, std::uint32_t>>& enc = t.encode;
    int rows = 0;
    for (unsigned b = 0; b < 256; ++b) {
        const char lead = static_cast<char>(b);
        bool incomplete = false;
        const wchar_t c = decodeOne(toWide, std::string_view(&lead, 1), incomplete);
        if (b == 0 || c != 0) {
            t.single[b] = c;
            enc.emplace_back(static_cast<char32_t>(c), b);
        } else if (incomplete) {
            t.leadRow[b] = static_cast<std::uint8_t>(++rows);
            t.pairs.resize(static_cast<std::size_t>(rows) * 256);
            for (unsigned trail = 0; trail < 256; ++trail) {
                const char seq[2] = {lead, static_cast<char>(trail)};
                const wchar_t p = decodeOne(toWide, std::string_view(seq, 2), incomplete);
                if (p == 0) continue;
                t.pairs[static_cast<std::size_t>(rows - 1) * 256 + trail] = p;
                enc.emplace_back(static_cast<char32_t>(p), CodeTable::kPair | (b << 8) | trail);
            }
        }
    }
    // glibc's Mac Roman predates the euro; the page has had it at 0xDB since 1998.
    if (std::string_view(iconvName) == "MACINTOSH") {
        for (auto& e : enc) {
            if (e.second == 0xDB) e.first = 0x20AC;
        }
        t.single[0xDB] = 0x20AC;
    }

    // A character reached from two sequences can be written back as one of
    // them only: keep the one iconv writes, and let the others decode as raw
    // bytes so that they survive too.
    std::stable_sort(enc.begin(), enc.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<std::pair<char32_t, std::uint32_t>> kept;
    for (std::size_t i = 0; i < enc.size();) {
        std::size_t j = i + 1;
        while (j < enc.size() && enc[j].first == enc[i].first) ++j;
        std::size_t pick = i;
        if (j - i > 1) {
            const wchar_t c = static_cast<wchar_t>(enc[i].first);
            unsigned char out[8];
            std::size_t len = sizeof out;
            bool incomplete = false;
            const std::string_view in(reinterpret_cast<const char*>(&c), sizeof c);
            if (fromWide.convert(in, reinterpret_cast<char*>(out), len, incomplete)) {
                const std::uint32_t written =
                    len == 1 ? out[0] : len == 2 ? (CodeTable::kPair | (out[0] << 8) | out[1]) : 0xFFFFFFFF;
                for (std::size_t k = i; k < j; ++k) {
                    if (enc[k].second == written) pick = k;
                }
            }
            for (std::size_t k = i; k < j; ++k) {
                if (k == pick) continue;
                const std::uint32_t s = enc[k].second;
                if (s & CodeTable::kPair) t.pairs[(t.leadRow[(s >> 8) & 0xFF] - 1u) * 256u + (s & 0xFF)] = 0;
                else t.single[s] = 0;
            }
        }
        kept.push_back(enc[pick]);
        i = j;
    }
    enc = std::move(kept);

    // Raw bytes must not look like characters of the page (CP950 has U+F7xx).
    auto lower = std::lower_bound(enc.begin(), enc.end(), kPrivateBase,
                                  [](const auto& e, char32_t v) { return e.first < v; });
    if (lower != enc.end() && lower->first < kPrivateBase + 256) t.rawBase = kSurrogateBase;
    for (unsigned b = 1; b < 128; ++b) {
        if (t.single[b] != static_cast<wchar_t>(b)) t.asciiIdentity = false;
    }
    return table;
}

std::shared_ptr<const CodeTable> cachedTable(const char* iconvName) {
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<const CodeTable>, std::less<>> cache;
    std::lock_guard lock(mutex);
    auto it = cache.find(std::string_view(iconvName));
    if (it != cache.end()) return it->second;
    auto table = buildTable(iconvName);
    cache.emplace(iconvName, table);
    return table;
}

// ---- UTF-8 with surrogate escapes -------------------------------------------

void decodeUtf8(std::string_view raw, std::wstring& out) {
    out.reserve(out.size() + raw.size());
    const auto* p = reinterpret_cast<const unsigned char*>(raw.data());
    const auto* e = p + raw.size();
    auto cont = [&](const unsigned char* q) { return q < e && (*q & 0xC0) == 0x80; };
    while (p < e) {
        const unsigned char c = *p;
        if (c < 0x80) {
            out += static_cast<wchar_t>(c);
            ++p;
            continue;
        }
        char32_t cp = 0;
        int len = 0;
        if (c >= 0xC2 && c <= 0xDF && cont(p + 1)) {
            cp = ((c & 0x1Fu) << 6) | (p[1] & 0x3Fu);
            len = 2;
        } else if (c >= 0xE0 && c <= 0xEF && cont(p + 1) && cont(p + 2)) {
            cp = ((c & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
            len = cp >= 0x800 && !isSurrogate(cp) ? 3 : 0;
        } else if (c >= 0xF0 && c <= 0xF4 && cont(p + 1) && cont(p + 2) && cont(p + 3)) {
            cp = ((c & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
            len = cp >= 0x10000 && cp <= 0x10FFFF ? 4 : 0;
        }
        if (len == 0) {
            out += static_cast<wchar_t>(kSurrogateBase + c);
            ++p;
        } else {
            out += static_cast<wchar_t>(cp);
            p += len;
        }
    }
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// ---- "\U+XXXX" ----------------------------------------------------------------

bool hex4(std::wstring_view s, std::size_t at, char32_t& v) {
    if (at + 4 > s.size()) return false;
    v = 0;
    for (std::size_t k = at; k < at + 4; ++k) {
        const wchar_t c = s[k];
        unsigned d;
        if (c >= L'0' && c <= L'9') d = static_cast<unsigned>(c - L'0');
        else if (c >= L'A' && c <= L'F') d = static_cast<unsigned>(c - L'A' + 10);
        else if (c >= L'a' && c <= L'f') d = static_cast<unsigned>(c - L'a' + 10);
        else return false;
        v = (v << 4) | d;
    }
    return true;
}

bool escapeAt(std::wstring_view s, std::size_t at, char32_t& v) {
    return at + 7 <= s.size() && s[at] == L'\\' && s[at + 1] == L'U' && s[at + 2] == L'+' && hex4(s, at + 3, v);
}

// Replaces escapes in place. An escape that would come out as one of the
// characters standing for a raw byte (or as a lone surrogate) stays as text:
// decoding it would change the bytes written back.
template <class IsRaw>
void decodeEscapes(std::wstring& s, IsRaw isRaw) {
    if (s.find(L'\\') == std::wstring::npos) return;
    std::size_t w = 0;
    for (std::size_t r = 0; r < s.size();) {
        char32_t v;
        if (escapeAt(s, r, v)) {
            std::size_t len = 7;
            char32_t lo;
            if (v >= 0xD800 && v <= 0xDBFF && escapeAt(s, r + 7, lo) && lo >= 0xDC00 && lo <= 0xDFFF) {
                v = 0x10000 + ((v - 0xD800) << 10) + (lo - 0xDC00);
                len = 14;
            }
            if (!isSurrogate(v) && !isRaw(v)) {
                s[w++] = static_cast<wchar_t>(v);
                r += len;
                continue;
            }
        }
        s[w++] = s[r++];
    }
    s.resize(w);
}

void appendEscape(std::string& out, char32_t c) {
    static constexpr char hex[] = "0123456789ABCDEF";
    auto one = [&](char32_t u) {
        out += "\\U+";
        for (int shift = 12; shift >= 0; shift -= 4) out += hex[(u >> shift) & 15];
    };
    if (c > 0x10FFFF) {
        one(0xFFFD);
    } else if (c >= 0x10000) {
        c -= 0x10000;
        one(0xD800 + (c >> 10));
        one(0xDC00 + (c & 0x3FF));
    } else {
        one(c);
    }
}

char32_t toChar32(wchar_t c) { return static_cast<char32_t>(static_cast<std::uint32_t>(c)); }

}  // namespace

Codec::Codec() = default;

Codec Codec::forDrawing(std::string_view acadver, std::string_view codepage) {
    Codec codec;
    if (trimBlanks(acadver) >= "AC1021") return codec;
    codepage = trimBlanks(codepage);
    const char* iconvName = lookupPage(codepage);
    if (!iconvName) throw UnknownCodePage("unknown code page '" + std::string(codepage) + "'");
    codec.utf8_ = false;
    codec.name_ = codepage.empty() ? "ANSI_1252" : std::string(codepage);
    codec.table_ = cachedTable(iconvName);
    return codec;
}

std::wstring Codec::decode(std::string_view raw) const {
    std::wstring out;
    if (utf8_) {
        decodeUtf8(raw, out);
        decodeEscapes(out, [](char32_t c) { return c >= kSurrogateBase + 0x80 && c <= kSurrogateBase + 0xFF; });
        return out;
    }
    const CodeTable& t = *table_;
    out.resize(raw.size());
    std::size_t w = 0;
    const auto* p = reinterpret_cast<const unsigned char*>(raw.data());
    const std::size_t n = raw.size();
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned char b = p[i];
        if (const unsigned row = t.leadRow[b]; row != 0 && i + 1 < n) {
            if (const wchar_t c = t.pairs[(row - 1) * 256 + p[i + 1]]; c != 0) {
                out[w++] = c;
                ++i;
                continue;
            }
        }
        const wchar_t c = t.single[b];
        out[w++] = c != 0 || b == 0 ? c : static_cast<wchar_t>(t.rawBase + b);
    }
    out.resize(w);
    decodeEscapes(out, [&t](char32_t c) { return t.isRaw(c); });
    return out;
}

std::string Codec::encode(std::wstring_view text) const {
    std::string out;
    out.reserve(text.size());
    if (utf8_) {
        for (wchar_t wc : text) {
            const char32_t c = toChar32(wc);
            if (c < 0x80) out += static_cast<char>(c);
            else if (c >= kSurrogateBase + 0x80 && c <= kSurrogateBase + 0xFF) out += static_cast<char>(c - kSurrogateBase);
            else if (isSurrogate(c) || c > 0x10FFFF) appendEscape(out, c);
            else appendUtf8(out, c);
        }
        return out;
    }
    const CodeTable& t = *table_;
    for (wchar_t wc : text) {
        const char32_t c = toChar32(wc);
        if (c < 0x80 && t.asciiIdentity) {
            out += static_cast<char>(c);
            continue;
        }
        auto it = std::lower_bound(t.encode.begin(), t.encode.end(), c,
                                   [](const auto& entry, char32_t v) { return entry.first < v; });
        if (it != t.encode.end() && it->first == c) {
            if (it->second & CodeTable::kPair) out += static_cast<char>((it->second >> 8) & 0xFF);
            out += static_cast<char>(it->second & 0xFF);
        } else if (t.isRaw(c)) {
            out += static_cast<char>(c - t.rawBase);
        } else {
            appendEscape(out, c);
        }
    }
    return out;
}

std::string toUtf8(std::wstring_view s) {
    std::string out;
    // Names, keys and handles are ASCII: one byte each, no checks.
    if (std::all_of(s.begin(), s.end(), [](wchar_t wc) { return wc >= 0 && wc < 0x80; })) {
        out.resize(s.size());
        std::transform(s.begin(), s.end(), out.begin(), [](wchar_t wc) { return static_cast<char>(wc); });
        return out;
    }
    out.reserve(s.size());
    for (wchar_t wc : s) {
        const char32_t c = toChar32(wc);
        if (c >= kSurrogateBase + 0x80 && c <= kSurrogateBase + 0xFF) out += static_cast<char>(c - kSurrogateBase);
        else if (isSurrogate(c) || c > 0x10FFFF) appendUtf8(out, 0xFFFD);
        else appendUtf8(out, c);
    }
    return out;
}

std::wstring fromUtf8(std::string_view s) {
    std::wstring out;
    decodeUtf8(s, out);
    return out;
}

}  // namespace dxf
