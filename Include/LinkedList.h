// Doubly linked list nodes and their primitives (UEFI base types). A head that points at itself is empty.
#pragma once

#include "Include/Layout.h"

struct LIST_ENTRY {
    LIST_ENTRY* ForwardLink;
    LIST_ENTRY* BackLink;
};
KYR_RECORD(LIST_ENTRY, 16);

inline void InitializeListHead(LIST_ENTRY* Head) {
    Head->ForwardLink = Head;
    Head->BackLink = Head;
}

inline bool IsListEmpty(const LIST_ENTRY* Head) {
    return Head->ForwardLink == Head;
}

inline void InsertTailList(LIST_ENTRY* Head, LIST_ENTRY* Entry) {
    Entry->ForwardLink = Head;
    Entry->BackLink = Head->BackLink;
    Head->BackLink->ForwardLink = Entry;
    Head->BackLink = Entry;
}

// Unlinks Entry and returns the one that followed it.
inline LIST_ENTRY* RemoveEntryList(LIST_ENTRY* Entry) {
    LIST_ENTRY* Next = Entry->ForwardLink;
    Next->BackLink = Entry->BackLink;
    Entry->BackLink->ForwardLink = Next;
    return Next;
}
