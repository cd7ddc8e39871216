#pragma once

/**
 * A text that outlives every object, such as a registered name: a node or parameter described by one keeps the pointer
 * and copies nothing. May be null.
 */
struct KvSharedText
{
    const char* text;
    /** False for a text like any other, which is copied after all: who makes an object may decide at run time. */
    bool isShared = true;
};
