#include "suite/wyprofile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

// Profile files are a few kilobytes; the limit only keeps a wrong file from
// costing time and memory.
constexpr std::size_t kMaxFileBytes = std::size_t(16) << 20;
// Files up to this size are compared byte for byte before a parsed copy is
// reused; larger ones are trusted on their size and times.
constexpr std::size_t kVerifyBytes = std::size_t(64) << 10;

enum class Encoding { Ansi, Utf8, Utf8Bom, Utf16Le, Utf16Be };

// --- characters and names -------------------------------------------------

bool isBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\v' || c == L'\f'; }
bool isLineEnd(wchar_t c) { return c == L'\r' || c == L'\n' || c == L'\0'; }

std::wstring_view trimLeading(std::wstring_view s)
{
    std::size_t b = 0;
    while (b < s.size() && isBlank(s[b])) ++b;
    return s.substr(b);
}

std::wstring_view trim(std::wstring_view s)
{
    s = trimLeading(s);
    std::size_t e = s.size();
    while (e > 0 && isBlank(s[e - 1])) --e;
    return s.substr(0, e);
}

// Lower case for the letters a user is likely to put in a name: ASCII,
// Latin-1, Latin Extended-A, Greek and Cyrillic. Dotted and dotless i stay
// apart, as in an ordinal comparison.
char32_t fold(wchar_t wc)
{
    const auto c = char32_t(std::uint32_t(wc));
    if (c < 0x80) return (c >= U'A' && c <= U'Z') ? c + 32 : c;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
    if (c >= 0x100 && c <= 0x17F) {
        if (c == 0x130 || c == 0x131 || c == 0x138 || c == 0x149 || c == 0x17F) return c;
        if (c == 0x178) return 0xFF;
        const bool evenUpper = c <= 0x137 || (c >= 0x14A && c <= 0x177);
        return (c % 2 == (evenUpper ? 0u : 1u)) ? c + 1 : c;
    }
    if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return c + 32;
    if (c >= 0x410 && c <= 0x42F) return c + 32;
    if (c >= 0x400 && c <= 0x40F) return c + 80;
    return c;
}

bool sameName(std::wstring_view a, std::wstring_view b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i] && fold(a[i]) != fold(b[i])) return false;
    return true;
}

std::uint64_t nameHash(std::wstring_view s)
{
    std::uint64_t h = 14695981039346656037ull;
    for (wchar_t c : s) {
        h ^= fold(c);
        h *= 1099511628211ull;
    }
    return h;
}

std::uint64_t keyHash(std::uint32_t section, std::wstring_view key)
{
    std::uint64_t h = nameHash(key) ^ (std::uint64_t(section) + 1) * 0x9E3779B97F4A7C15ull;
    h ^= h >> 29;
    return h * 0xBF58476D1CE4E5B9ull;
}

// --- lines -------------------------------------------------------------------

// One line: content [begin, end), then its line end up to next.
struct Line {
    std::size_t begin, end, next;
};

template <class F>
void forEachLine(std::wstring_view t, F&& f)
{
    std::size_t pos = 0;
    const std::size_t n = t.size();
    while (pos < n) {
        std::size_t end = pos;
        while (end < n && !isLineEnd(t[end])) ++end;
        std::size_t next = end;
        if (next < n) next += (t[next] == L'\r' && next + 1 < n && t[next + 1] == L'\n') ? 2 : 1;
        if (!f(Line{pos, end, next})) return;
        pos = next;
    }
}

enum class Kind { Blank, Comment, Section, Key, Other };

struct Parsed {
    Kind kind = Kind::Other;
    std::wstring_view name;
    std::wstring_view value;
};

Parsed parseLine(std::wstring_view line)
{
    const std::wstring_view s = trim(line);
    if (s.empty()) return {Kind::Blank, {}, {}};
    if (s[0] == L';') return {Kind::Comment, {}, {}};
    if (s[0] == L'[') {
        const std::size_t close = s.find(L']');
        if (close != std::wstring_view::npos) return {Kind::Section, trim(s.substr(1, close - 1)), {}};
    }
    const std::size_t eq = s.find(L'=');
    if (eq == std::wstring_view::npos) return {Kind::Other, {}, {}};
    return {Kind::Key, trim(s.substr(0, eq)), trim(s.substr(eq + 1))};
}

// --- encodings ---------------------------------------------------------------

// Windows-1252 from 0x80 to 0x9F; the five unassigned bytes map to the C1
// controls of the same value, as the system's conversion does.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char ansiByte(char32_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return char(c);
    for (int i = 0; i < 32; ++i)
        if (kCp1252High[i] == c) return char(0x80 + i);
    return '?';
}

// One UTF-8 sequence at p: its length, 0 when it is cut by the end of the
// data, -1 when it is not UTF-8 (overlong, surrogate, beyond U+10FFFF).
int utf8Sequence(const unsigned char* p, std::size_t avail, char32_t& cp)
{
    const unsigned char b = p[0];
    if (b < 0x80) {
        cp = b;
        return 1;
    }
    int len;
    char32_t least;
    if (b >= 0xC2 && b <= 0xDF) {
        len = 2;
        cp = b & 0x1F;
        least = 0x80;
    } else if (b >= 0xE0 && b <= 0xEF) {
        len = 3;
        cp = b & 0x0F;
        least = 0x800;
    } else if (b >= 0xF0 && b <= 0xF4) {
        len = 4;
        cp = b & 0x07;
        least = 0x10000;
    } else {
        return -1;
    }
    for (int k = 1; k < len; ++k) {
        if (std::size_t(k) >= avail) return 0;
        if ((p[k] & 0xC0) != 0x80) return -1;
        cp = (cp << 6) | (p[k] & 0x3F);
    }
    if (cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return -1;
    return len;
}

// A byte-order mark decides; otherwise valid UTF-8 with at least one
// multibyte sequence is UTF-8 (a Windows-1252 text with accents is almost
// never valid UTF-8), and anything else Windows-1252. `cut` says the data
// stops at the reading limit, possibly inside a character.
Encoding detect(std::string_view b, bool cut, std::size_t& bom)
{
    const auto* u = reinterpret_cast<const unsigned char*>(b.data());
    const std::size_t n = b.size();
    bom = 0;
    if (n >= 2 && u[0] == 0xFF && u[1] == 0xFE) {
        bom = 2;
        return Encoding::Utf16Le;
    }
    if (n >= 2 && u[0] == 0xFE && u[1] == 0xFF) {
        bom = 2;
        return Encoding::Utf16Be;
    }
    if (n >= 3 && u[0] == 0xEF && u[1] == 0xBB && u[2] == 0xBF) {
        bom = 3;
        return Encoding::Utf8Bom;
    }
    bool multibyte = false;
    for (std::size_t i = 0; i < n;) {
        if (u[i] < 0x80) {
            ++i;
            continue;
        }
        char32_t cp;
        const int len = utf8Sequence(u + i, n - i, cp);
        if (len > 0) {
            multibyte = true;
            i += std::size_t(len);
        } else if (len == 0 && cut) {
            break;
        } else {
            return Encoding::Ansi;
        }
    }
    return multibyte ? Encoding::Utf8 : Encoding::Ansi;
}

std::wstring decode(std::string_view b, Encoding enc, std::size_t bom)
{
    const auto* u = reinterpret_cast<const unsigned char*>(b.data());
    const std::size_t n = b.size();
    std::wstring out;
    switch (enc) {
    case Encoding::Ansi:
        out.resize(n);
        for (std::size_t i = 0; i < n; ++i)
            out[i] = (u[i] >= 0x80 && u[i] < 0xA0) ? wchar_t(kCp1252High[u[i] - 0x80]) : wchar_t(u[i]);
        break;
    case Encoding::Utf8:
    case Encoding::Utf8Bom:
        out.reserve(n - bom);
        for (std::size_t i = bom; i < n;) {
            char32_t cp;
            const int len = utf8Sequence(u + i, n - i, cp);
            if (len > 0) {
                out.push_back(wchar_t(cp));
                i += std::size_t(len);
            } else {
                out.push_back(L'\xFFFD');
                ++i;
            }
        }
        break;
    case Encoding::Utf16Le:
    case Encoding::Utf16Be: {
        const bool le = enc == Encoding::Utf16Le;
        out.reserve((n - bom) / 2);
        std::size_t i = bom;
        auto unit = [&](std::size_t at) -> char32_t {
            return le ? char32_t(u[at] | (u[at + 1] << 8)) : char32_t((u[at] << 8) | u[at + 1]);
        };
        while (i + 1 < n) {
            char32_t c = unit(i);
            i += 2;
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n) {
                const char32_t low = unit(i);
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                    i += 2;
                }
            }
            // A lone surrogate is kept as it is, so that it is written back unchanged.
            out.push_back(wchar_t(c));
        }
        break;
    }
    }
    return out;
}

void appendUtf8(std::string& out, char32_t c)
{
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
        out.push_back(char(c));
    } else if (c < 0x800) {
        out.push_back(char(0xC0 | (c >> 6)));
        out.push_back(char(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(char(0xE0 | (c >> 12)));
        out.push_back(char(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(char(0x80 | (c & 0x3F)));
    } else {
        out.push_back(char(0xF0 | (c >> 18)));
        out.push_back(char(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(char(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(char(0x80 | (c & 0x3F)));
    }
}

std::string encode(std::wstring_view text, Encoding enc)
{
    std::string out;
    switch (enc) {
    case Encoding::Ansi:
        out.reserve(text.size());
        for (wchar_t c : text) out.push_back(ansiByte(char32_t(std::uint32_t(c))));
        break;
    case Encoding::Utf8:
    case Encoding::Utf8Bom:
        out.reserve(text.size() + 3);
        if (enc == Encoding::Utf8Bom) out = "\xEF\xBB\xBF";
        for (wchar_t c : text) appendUtf8(out, char32_t(std::uint32_t(c)));
        break;
    case Encoding::Utf16Le:
    case Encoding::Utf16Be: {
        const bool le = enc == Encoding::Utf16Le;
        out.reserve(2 * text.size() + 2);
        auto unit = [&](char32_t v) {
            const char lo = char(v & 0xFF), hi = char((v >> 8) & 0xFF);
            out.push_back(le ? lo : hi);
            out.push_back(le ? hi : lo);
        };
        unit(0xFEFF);
        for (wchar_t wc : text) {
            char32_t c = char32_t(std::uint32_t(wc));
            if (c > 0x10FFFF) c = 0xFFFD;
            if (c < 0x10000) {
                unit(c);
            } else {
                unit(0xD800 + ((c - 0x10000) >> 10));
                unit(0xDC00 + ((c - 0x10000) & 0x3FF));
            }
        }
        break;
    }
    }
    return out;
}

std::string toUtf8Path(const wchar_t* path)
{
    std::string out;
    if (!path) return out;
    for (const wchar_t* p = path; *p; ++p) appendUtf8(out, char32_t(std::uint32_t(*p)));
    return out;
}

// --- files -------------------------------------------------------------------

struct Stamp {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = -1;
    timespec mtime{}, ctime{};

    static Stamp of(const struct stat& st) { return {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim}; }
    bool operator==(const Stamp& o) const
    {
        return dev == o.dev && ino == o.ino && size == o.size && mtime.tv_sec == o.mtime.tv_sec &&
               mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec && ctime.tv_nsec == o.ctime.tv_nsec;
    }
};

class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd()
    {
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// Opens a regular file for reading without blocking on a pipe or device.
int openRegular(const std::string& path, struct stat& st)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

// Reads at most the limit; `cut` tells whether there was more.
bool readBytes(int fd, off_t sizeHint, std::string& out, bool& cut)
{
    out.clear();
    cut = false;
    const std::size_t want = kMaxFileBytes + 1;
    out.resize(std::min(want, sizeHint > 0 ? std::size_t(sizeHint) + 1 : std::size_t(4096)));
    std::size_t got = 0;
    for (;;) {
        if (got == out.size()) {
            if (out.size() >= want) break;
            out.resize(std::min(want, out.size() * 2));
        }
        const ssize_t r = ::read(fd, out.data() + got, out.size() - got);
        if (r < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (r == 0) break;
        got += std::size_t(r);
    }
    if (got > kMaxFileBytes) {
        got = kMaxFileBytes;
        cut = true;
    }
    out.resize(got);
    return true;
}

bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t w = ::write(fd, bytes.data(), bytes.size());
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes.remove_prefix(std::size_t(w));
    }
    return true;
}

// Writes a temporary file beside `file` and renames it over `file`, so a
// reader sees the old content or the new, never a part.
bool replaceFile(const std::string& file, std::string_view bytes, const struct stat* old)
{
    const std::size_t slash = file.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
    static unsigned counter = 0;
    std::string tmp;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        tmp = dir + "/.wyprofile-" + std::to_string(::getpid()) + "-" + std::to_string(++counter) + ".tmp";
        fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) return false;
    }
    if (fd < 0) return false;
    bool ok = writeAll(fd, bytes) && ::fsync(fd) == 0;
    if (ok && old) ok = ::fchmod(fd, old->st_mode & 07777) == 0;
    ok = (::close(fd) == 0) && ok;
    if (ok) ok = ::rename(tmp.c_str(), file.c_str()) == 0;
    if (!ok) ::unlink(tmp.c_str());
    return ok;
}

// --- the parsed file ---------------------------------------------------------

// A file's text with an index of the first section of each name and the
// first key of each name in those sections; the later ones are never seen.
struct Profile {
    // Offsets into the text, which the reading limit keeps below 2^32.
    struct Section {
        std::uint32_t nameBegin, nameLength;
    };
    struct Key {
        std::uint32_t section, nameBegin, nameLength, valueBegin, valueLength;
    };
    std::wstring text;
    std::vector<Section> sections;
    std::vector<Key> keys;
    std::unordered_map<std::uint64_t, std::uint32_t> sectionIndex;
    std::unordered_map<std::uint64_t, std::uint32_t> keyIndex;
    // Two different names met with one hash: lookups walk the text instead.
    bool collision = false;

    std::uint32_t offset(const wchar_t* at) const { return std::uint32_t(at - text.data()); }

    std::wstring_view view(std::size_t begin, std::size_t length) const
    {
        return std::wstring_view(text).substr(begin, length);
    }

    void build()
    {
        const std::wstring_view t(text);
        std::int64_t current = -1;
        forEachLine(t, [&](const Line& line) {
            const Parsed p = parseLine(t.substr(line.begin, line.end - line.begin));
            if (p.kind == Kind::Section) {
                current = -1;
                const auto [it, added] = sectionIndex.try_emplace(nameHash(p.name), std::uint32_t(sections.size()));
                if (added) {
                    current = std::int64_t(sections.size());
                    sections.push_back({offset(p.name.data()), std::uint32_t(p.name.size())});
                } else if (!sameName(sectionName(it->second), p.name)) {
                    collision = true;
                }
            } else if (p.kind == Kind::Key && current >= 0) {
                const auto s = std::uint32_t(current);
                const auto [it, added] = keyIndex.try_emplace(keyHash(s, p.name), std::uint32_t(keys.size()));
                if (added) {
                    keys.push_back({s, offset(p.name.data()), std::uint32_t(p.name.size()), offset(p.value.data()),
                                    std::uint32_t(p.value.size())});
                } else {
                    const Key& k = keys[it->second];
                    if (k.section != s || !sameName(view(k.nameBegin, k.nameLength), p.name)) collision = true;
                }
            }
            return true;
        });
    }

    std::wstring_view sectionName(std::uint32_t i) const
    {
        return view(sections[i].nameBegin, sections[i].nameLength);
    }

    std::optional<std::wstring_view> find(std::wstring_view section, std::wstring_view key) const
    {
        if (collision) return walk(section, key);
        const auto s = sectionIndex.find(nameHash(section));
        if (s == sectionIndex.end() || !sameName(sectionName(s->second), section)) return std::nullopt;
        const auto k = keyIndex.find(keyHash(s->second, key));
        if (k == keyIndex.end()) return std::nullopt;
        const Key& e = keys[k->second];
        if (e.section != s->second || !sameName(view(e.nameBegin, e.nameLength), key)) return std::nullopt;
        return view(e.valueBegin, e.valueLength);
    }

    // The same lookup by reading the lines in order.
    std::optional<std::wstring_view> walk(std::wstring_view section, std::wstring_view key) const
    {
        const std::wstring_view t(text);
        std::optional<std::wstring_view> found;
        bool inside = false;
        forEachLine(t, [&](const Line& line) {
            const Parsed p = parseLine(t.substr(line.begin, line.end - line.begin));
            if (p.kind == Kind::Section) {
                if (inside) return false;
                inside = sameName(p.name, section);
            } else if (inside && p.kind == Kind::Key && sameName(p.name, key)) {
                found = p.value;
                return false;
            }
            return true;
        });
        return found;
    }

    // Names of the sections (section null) or of the keys of a section, each
    // name once, in file order.
    std::vector<std::wstring_view> names(const wchar_t* section) const
    {
        const std::wstring_view t(text);
        const std::wstring_view wanted = section ? trim(section) : std::wstring_view();
        std::vector<std::wstring_view> out;
        std::unordered_set<std::wstring> seen;
        bool inside = false, done = false;
        auto add = [&](std::wstring_view name) {
            std::wstring folded;
            for (wchar_t c : name) folded.push_back(wchar_t(fold(c)));
            if (seen.insert(std::move(folded)).second) out.push_back(name);
        };
        forEachLine(t, [&](const Line& line) {
            const Parsed p = parseLine(t.substr(line.begin, line.end - line.begin));
            if (p.kind == Kind::Section) {
                if (!section) {
                    add(p.name);
                } else if (inside) {
                    return false;
                } else if (!done && sameName(p.name, wanted)) {
                    inside = done = true;
                }
            } else if (inside && p.kind == Kind::Key) {
                add(p.name);
            }
            return true;
        });
        return out;
    }
};

// The last file read, kept while its bytes (or, for a large file, its size
// and times) stay the same: reading a standard asks for many keys in a row.
struct Cache {
    std::mutex mutex;
    std::string path;
    Stamp stamp;
    std::string bytes;
    std::shared_ptr<const Profile> profile;

    void forget()
    {
        path.clear();
        bytes.clear();
        profile.reset();
    }
};

Cache& cache()
{
    static Cache c;
    return c;
}

// The parsed file, or null for a file that cannot be read.
std::shared_ptr<const Profile> loadProfile(const std::string& path)
{
    Cache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
    if (c.profile && c.path == path && c.stamp == Stamp::of(st) && std::size_t(st.st_size) > kVerifyBytes)
        return c.profile;
    const int raw = openRegular(path, st);
    if (raw < 0) return nullptr;
    Fd fd(raw);
    const Stamp stamp = Stamp::of(st);
    const bool same = c.profile && c.path == path && c.stamp == stamp;
    std::string bytes;
    bool cut = false;
    if (!readBytes(fd.get(), st.st_size, bytes, cut)) return nullptr;
    if (same && bytes == c.bytes) return c.profile;

    auto profile = std::make_shared<Profile>();
    std::size_t bom = 0;
    const Encoding enc = detect(bytes, cut, bom);
    profile->text = decode(bytes, enc, bom);
    profile->build();
    c.path = path;
    c.stamp = stamp;
    c.bytes = std::size_t(st.st_size) <= kVerifyBytes ? std::move(bytes) : std::string();
    c.profile = profile;
    return profile;
}

DWORD copyOut(std::wstring_view s, wchar_t* buffer, DWORD size)
{
    const std::size_t n = std::min<std::size_t>(s.size(), std::size_t(size) - 1);
    s.copy(buffer, n);
    buffer[n] = L'\0';
    return DWORD(n);
}

// Names one after the other, each terminated, and a final terminator; a
// list that does not fit is cut and answers size - 2.
DWORD copyList(const std::vector<std::wstring_view>& names, wchar_t* buffer, DWORD size)
{
    if (size == 1) {
        buffer[0] = L'\0';
        return 0;
    }
    std::size_t room = std::size_t(size) - 1;
    wchar_t* p = buffer;
    for (std::wstring_view name : names) {
        const std::size_t need = name.size() + 1;
        if (need > room) {
            if (room > 0) {
                p += name.copy(p, room - 1);
                *p++ = L'\0';
            }
            *p = L'\0';
            return size - 2;
        }
        p += name.copy(p, name.size());
        *p++ = L'\0';
        room -= need;
    }
    *p = L'\0';
    return DWORD(p - buffer);
}

std::wstring_view unquote(std::wstring_view v)
{
    if (v.size() >= 2 && (v.front() == L'"' || v.front() == L'\'') && v.back() == v.front())
        return v.substr(1, v.size() - 2);
    return v;
}

// The text with one key set, added or removed (value null), or one section
// removed (key null); `changed` tells whether anything was done.
std::wstring edit(const std::wstring& text, const wchar_t* section, const wchar_t* key, const wchar_t* value,
                  bool& changed)
{
    const std::wstring_view t(text);
    const std::wstring_view sectionWanted = trim(section);
    const std::wstring_view keyWanted = key ? trim(key) : std::wstring_view();
    bool inside = false, sectionFound = false, keyFound = false;
    std::size_t sectionBegin = 0, sectionEnd = t.size(), insertAt = 0;
    bool insertNeedsBreak = false;
    Line keyLine{};
    forEachLine(t, [&](const Line& line) {
        const Parsed p = parseLine(t.substr(line.begin, line.end - line.begin));
        if (p.kind == Kind::Section) {
            if (inside) {
                sectionEnd = line.begin;
                return false;
            }
            if (sameName(p.name, sectionWanted)) {
                inside = sectionFound = true;
                sectionBegin = line.begin;
            }
        } else if (inside && key && !keyFound && p.kind == Kind::Key && sameName(p.name, keyWanted)) {
            keyFound = true;
            keyLine = line;
        }
        if (inside && p.kind != Kind::Blank) {
            insertAt = line.next;
            insertNeedsBreak = line.next == line.end;  // the last line, without a line end
        }
        return true;
    });

    changed = true;
    std::wstring out(text);
    if (!key) {
        if (sectionFound) out.erase(sectionBegin, sectionEnd - sectionBegin);
        else changed = false;
        return out;
    }
    if (!value) {
        if (keyFound) out.erase(keyLine.begin, keyLine.next - keyLine.begin);
        else changed = false;
        return out;
    }
    std::wstring entry(trimLeading(key));
    entry += L'=';
    entry += value;
    if (keyFound) {
        out.replace(keyLine.begin, keyLine.end - keyLine.begin, entry);
    } else if (sectionFound) {
        out.insert(insertAt, (insertNeedsBreak ? L"\r\n" : L"") + entry + L"\r\n");
    } else {
        if (!out.empty() && !isLineEnd(out.back())) out += L"\r\n";
        out += L'[';
        out += trimLeading(section);
        out += L"]\r\n";
        out += entry;
        out += L"\r\n";
    }
    return out;
}

BOOL writeProfile(const wchar_t* section, const wchar_t* key, const wchar_t* value, const wchar_t* path)
{
    std::string file = toUtf8Path(path);
    if (file.empty()) return FALSE;
    Cache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);

    // Through a symbolic link, the file it names is the one replaced.
    struct stat lst {};
    if (::lstat(file.c_str(), &lst) == 0 && S_ISLNK(lst.st_mode)) {
        if (char* real = ::realpath(file.c_str(), nullptr)) {
            file = real;
            std::free(real);
        }
    }

    std::string bytes;
    struct stat st {};
    bool exists = false, cut = false;
    const int raw = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (raw >= 0) {
        Fd fd(raw);
        if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return FALSE;
        if (!readBytes(fd.get(), st.st_size, bytes, cut) || cut) return FALSE;
        exists = true;
    } else if (errno != ENOENT) {
        return FALSE;
    }

    std::size_t bom = 0;
    const Encoding enc = detect(bytes, false, bom);
    bool changed = false;
    const std::wstring before = decode(bytes, enc, bom);
    const std::wstring text = edit(before, section, key, value, changed);
    // Nothing to remove, or the same value again: the file stays as it is.
    if (!changed || (exists && text == before)) return TRUE;
    const bool ok = replaceFile(file, encode(text, enc), exists ? &st : nullptr);
    c.forget();
    return ok ? TRUE : FALSE;
}

}  // namespace

DWORD GetPrivateProfileStringW(const wchar_t* section, const wchar_t* key, const wchar_t* defaultValue,
                               wchar_t* buffer, DWORD size, const wchar_t* path)
{
    if (!buffer || size == 0) return 0;
    try {
        std::shared_ptr<const Profile> profile;
        if (path) profile = loadProfile(toUtf8Path(path));
        if (!section || !key)
            return copyList(profile ? profile->names(section) : std::vector<std::wstring_view>(), buffer, size);
        std::optional<std::wstring_view> value;
        if (profile) value = profile->find(trim(section), trim(key));
        if (value) return copyOut(unquote(*value), buffer, size);
        std::wstring_view fallback = defaultValue ? defaultValue : L"";
        while (!fallback.empty() && isBlank(fallback.back())) fallback.remove_suffix(1);
        return copyOut(fallback, buffer, size);
    } catch (...) {
        // Out of memory on a pathological file: it reads as nothing.
        buffer[0] = L'\0';
        return 0;
    }
}

BOOL WritePrivateProfileStringW(const wchar_t* section, const wchar_t* key, const wchar_t* value,
                                const wchar_t* path)
{
    if (!section || !path) return FALSE;
    try {
        return writeProfile(section, key, value, path);
    } catch (...) {
        return FALSE;
    }
}

std::wstring wyGetProfileString(const std::wstring& section, const std::wstring& key,
                                const std::wstring& defaultValue, const std::wstring& path, DWORD size)
{
    if (size == 0) return std::wstring();
    std::vector<wchar_t> buffer(std::size_t(size) + 1, L'\0');
    const DWORD n =
        GetPrivateProfileStringW(section.c_str(), key.c_str(), defaultValue.c_str(), buffer.data(), size, path.c_str());
    return std::wstring(buffer.data(), n);
}
