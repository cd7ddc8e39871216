#pragma once

#include <climits>
#include <cstdio>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

class KvCBuffer;
class KvCInventoryItem;
struct KvInventorySectionHeader;
struct KvInventorySectionTrailer;

/**
 * Inventory trees outside the process: a section is the serialized tree between a header and a trailer of 24 bytes
 * (inventory/SectionFormat.h), so that it is found from the start of a file or block as well as from its end, behind
 * any other content. Static operations only. A block or file without a section gives a null root and no error.
 */
class KV_EXPORT KvCInventoryData
{
public:
    /** Appends a section with the tree below and including `root` to `buffer`. 0x130000f, 0x130000a, 0x1300004 behind
       the cause of a failure. */
    static void generateInventorySection(KvCErrorListPool& errors, KvCBuffer& buffer, KvCInventoryItem* root);
    /** Reads the section of the regular file `path`; `root` receives the tree, owned by the caller, or null. 0x1300001
        the file cannot be opened, 0x1300003 it cannot be read (behind the cause), 0x1300000 the tree is damaged. */
    static void extractInventoryTreeFromFile(KvCErrorListPool& errors, const char* path, KvCInventoryItem*& root);
    /** The same for `size` bytes at `data` (null: nothing). 0x130000d the section is damaged (behind the cause),
        0x130000b the tree is. */
    static void extractInventoryTreeFromMem(KvCErrorListPool& errors, const unsigned char* data, unsigned long size,
                                            KvCInventoryItem*& root);
    /** The size in bytes of the section, header and trailer included, as announced by a header at the start and by a
        trailer at the end of the block; 0 where there is none. 0x130000c when it exceeds the block. */
    static void getInventorySectionSizeFromMem(KvCErrorListPool& errors, const char* data, unsigned long size,
                                               KvUInt32& sizeByHeader, KvUInt32& sizeByTrailer);
#if ULONG_MAX != 0xFFFFFFFFUL
    static void getInventorySectionSizeFromMem(KvCErrorListPool& errors, const char* data, unsigned long size,
                                               unsigned long& sizeByHeader, unsigned long& sizeByTrailer)
    {
        KvUInt32 byHeader;
        KvUInt32 byTrailer;
        getInventorySectionSizeFromMem(errors, data, size, byHeader, byTrailer);
        sizeByHeader = byHeader;
        sizeByTrailer = byTrailer;
    }
#endif

private:
    struct Block;

    static void writeHeader(KvCErrorListPool& errors, KvCBuffer& buffer, KvUInt32 dataSize, KvInt32 position);
    static void writeTrailer(KvCErrorListPool& errors, KvCBuffer& buffer, KvUInt32 dataSize);
    static bool checkHeader(KvCErrorListPool& errors, const KvInventorySectionHeader& header);
    static bool checkTrailer(KvCErrorListPool& errors, const KvInventorySectionTrailer& trailer);
    static void readInventoryDataFromFile(KvCErrorListPool& errors, const char* path, KvCBuffer& buffer);
    static void readInventoryDataFromMem(KvCErrorListPool& errors, const unsigned char* data, unsigned long size,
                                         KvCBuffer& buffer);
    static unsigned char* readInventoryDataHeaderFromFile(KvCErrorListPool& errors, std::FILE* file, KvUInt64 fileSize,
                                                          KvUInt32& size);
    static unsigned char* readInventoryDataTrailerFromFile(KvCErrorListPool& errors, std::FILE* file, KvUInt64 fileSize,
                                                           KvUInt32& size);
    static const unsigned char* seekInventoryDataHeaderInMem(KvCErrorListPool& errors, const unsigned char* data,
                                                             unsigned long size, KvUInt32& dataSize);
    static const unsigned char* seekInventoryDataTrailerInMem(KvCErrorListPool& errors, const unsigned char* data,
                                                              unsigned long size, KvUInt32& dataSize);
};
