// Profile ("INI") files: sections of key=value lines, read and written one
// key at a time with the private-profile contract the module relies on.
//
// Reading
// - Section and key names match without regard to case (Latin, Greek and
//   Cyrillic letters); blanks around them are ignored, in the file and in
//   the arguments.
// - Blanks (space, tab, VT, FF) around a value are dropped; then one pair of
//   matching surrounding quotes (double or single) is removed.
// - Lines end at CR LF, LF, CR or NUL. Blank lines, lines whose first
//   non-blank character is ';', lines without '=' and keys before the first
//   section are nothing. Only the first section of a name and the first key
//   of a name in it count.
// - Encodings: a byte-order mark selects UTF-16 LE, UTF-16 BE or UTF-8.
//   Without one, a file that is valid UTF-8 and holds at least one multibyte
//   sequence is UTF-8; anything else is Windows-1252 (every byte decodes).
// - At most the first 16 MiB of a file are read; a missing, unreadable or
//   non-regular file reads as a file without sections. No call reports an
//   error beyond the number of characters copied.
//
// Writing
// - One key is added or replaced in place; every other byte of the file is
//   kept. A missing key goes after the last non-blank line of its section, a
//   missing section at the end of the file. The file is created when missing
//   (its folder is not). New lines end with CR LF.
// - Section and key are written as given after their leading blanks (so a
//   key "Name_1 " gives "Name_1 =value"); the value is written raw, so a line
//   feed inside it breaks the line.
// - New and empty files, and files read as Windows-1252, are written in
//   Windows-1252: a character outside it is written as '?' (no look-alike
//   substitution). A file read as UTF-8 or UTF-16 keeps its encoding and its
//   byte-order mark, so other lines are not damaged.
// - The new content goes to a temporary file in the same folder that then
//   replaces the file, so a failed write leaves the old file whole. A file
//   larger than the reading limit is not rewritten (the call fails).
#pragma once

#include <cstdint>
#include <string>

#ifndef ZEFT_WIN_TYPES_DEFINED
#define ZEFT_WIN_TYPES_DEFINED
typedef std::uint32_t DWORD;
typedef int BOOL;
#endif
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// Copies the value of key in section of the file at path into buffer, cut
// to size - 1 characters and terminated; when the key is missing, the
// default (null: empty) without its trailing blanks. Returns the number of
// characters copied, without the terminator; 0 when buffer is null or size 0.
// A null section lists the section names, a null key the key names of the
// section: each name terminated, the list ended by a second terminator; when
// the list does not fit, it is cut and size - 2 is returned.
DWORD GetPrivateProfileStringW(const wchar_t* section, const wchar_t* key, const wchar_t* defaultValue,
                               wchar_t* buffer, DWORD size, const wchar_t* path);

// Sets key in section of the file at path to value. A null value removes the
// key, a null key the whole section. FALSE when section or path is null or
// the file cannot be written.
BOOL WritePrivateProfileStringW(const wchar_t* section, const wchar_t* key, const wchar_t* value,
                                const wchar_t* path);

// GetPrivateProfileStringW into a buffer of size characters, as a string.
std::wstring wyGetProfileString(const std::wstring& section, const std::wstring& key,
                                const std::wstring& defaultValue, const std::wstring& path, DWORD size = 100);
