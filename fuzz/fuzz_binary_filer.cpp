// Feeds arbitrary bytes to the binary filer through the readers that use it.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/filer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static AcDbDatabase db;
    std::vector<std::uint8_t> bytes(data, data + size);
    {
        AcDbMemoryFiler filer(&db);
        filer.setBytes(bytes);
        AcDbObject obj;
        obj.dwgInFields(&filer);
        AcDbEntity ent;
        filer.rewind();
        ent.dwgInFields(&filer);
        (void)ent.xData();
        (void)ent.layer();
    }
    {
        AcDbMemoryFiler filer(&db);
        filer.setBytes(bytes);
        std::int16_t i16;
        std::int32_t i32;
        double d;
        bool b;
        std::wstring s;
        std::vector<std::uint8_t> raw;
        AcDbObjectId id;
        while (filer.filerStatus() == Acad::eOk) {
            filer.readInt16(&i16);
            filer.readString(s);
            filer.readHardPointerId(&id);
            filer.readInt32(&i32);
            filer.readBytes(raw);
            filer.readDouble(&d);
            filer.readBool(&b);
            filer.readSoftOwnershipId(&id);
        }
    }
    return 0;
}
