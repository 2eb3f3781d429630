// Filing steps shared by the module's persistent classes, and their
// registration. The classes keep their own crash guards: these run inside
// them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/dbobject.h"
#include "host/filer.h"

namespace zeft_filing {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
using Strings = std::vector<std::wstring>;

// Registers the five persistent classes and rebuilds the class hierarchy.
// Registering again changes nothing.
void registerClasses();

// Reads the next item into `item`. When its group code is not `code`, the
// item is pushed back, the filer is given eInvalidDxfCode with the
// expected code, and false is returned.
bool readItemOfCode(AcDbDxfFiler* filer, short code, ResBuf& item);

// An object's head: the base object's part, then (DXF) the subclass marker,
// then the object version. The readers answer eOk to go on, eMakeMeProxy
// when a newer module wrote the object, so that it is kept as a proxy, or
// else the status the object's reader returns.
Acad::ErrorStatus readHead(AcDbObject& object, AcDbDwgFiler* filer, std::uint16_t current, std::uint16_t& version);
Acad::ErrorStatus readHead(AcDbObject& object, AcDbDxfFiler* filer, const wchar_t* subclass, std::uint16_t current,
                           std::uint16_t& version);
Acad::ErrorStatus writeHead(const AcDbObject& object, AcDbDwgFiler* filer, std::uint16_t current);
Acad::ErrorStatus writeHead(const AcDbObject& object, AcDbDxfFiler* filer, const wchar_t* subclass,
                            std::uint16_t current);

// A counted list: its count, then its elements. `list` is cleared once the
// count is read.
//
// Binary: a 32-bit count. A damaged stream stops the loop instead of
// appending empty elements.
template <class T, class ReadOne>
void readList(AcDbDwgFiler* filer, std::vector<T>& list, ReadOne readOne)
{
    std::uint32_t count = 0;
    filer->readUInt32(&count);
    list.clear();
    for (std::uint32_t i = 0; i < count && filer->filerStatus() == Acad::eOk; ++i) {
        T element;
        readOne(element);
        list.push_back(std::move(element));
    }
}

// DXF: the count under group code 90, read through the 16-bit view, as
// drawings of every version were read; counts stay far below 32768. An
// element is kept only when `readOne` read it whole; false at the first
// item of a wrong code, keeping the elements read before it. The error is
// then in the filer's status, which callers that return it anyway read
// instead of the answer.
template <class T, class ReadOne>
bool readList(AcDbDxfFiler* filer, std::vector<T>& list, ReadOne readOne)
{
    ResBuf item;
    if (!readItemOfCode(filer, 90, item)) return false;
    const int count = item.rint();
    list.clear();
    for (int i = 0; i < count; ++i) {
        T element;
        if (!readOne(element)) return false;
        list.push_back(std::move(element));
    }
    return true;
}

template <class T, class WriteOne>
void writeList(AcDbDwgFiler* filer, const std::vector<T>& list, WriteOne writeOne)
{
    filer->writeUInt32(std::uint32_t(list.size()));
    for (const T& element : list) writeOne(element);
}

template <class T, class WriteOne>
void writeList(AcDbDxfFiler* filer, const std::vector<T>& list, WriteOne writeOne)
{
    filer->writeUInt32(90, std::uint32_t(list.size()));
    for (const T& element : list) writeOne(element);
}

// Lists of (key, value) pairs and of strings; DXF files each string under
// group code 1.
void readPairs(AcDbDwgFiler* filer, Pairs& pairs);
bool readPairs(AcDbDxfFiler* filer, Pairs& pairs);
void writePairs(AcDbDwgFiler* filer, const Pairs& pairs);
void writePairs(AcDbDxfFiler* filer, const Pairs& pairs);
void readStrings(AcDbDwgFiler* filer, Strings& strings);
bool readStrings(AcDbDxfFiler* filer, Strings& strings);
void writeStrings(AcDbDwgFiler* filer, const Strings& strings);
void writeStrings(AcDbDxfFiler* filer, const Strings& strings);

}  // namespace zeft_filing
