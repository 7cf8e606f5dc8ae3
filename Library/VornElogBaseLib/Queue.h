// A first-in-first-out list whose nodes own copies of data of any size. The creator owns the header.
#pragma once

#include "Include/BoundedContainers.h"
#include "Platform/Base.h"

// Zeroes the header without releasing anything; NULL does nothing.
void QueueInit(QUEUE* pQueue);

// Appends a copy of DataSize bytes. EFI_INVALID_PARAMETER for a NULL argument, the allocator's status when memory
// runs out (the queue is unchanged), EFI_SUCCESS.
EFI_STATUS QueueAdd(QUEUE* pQueue, const void* pData, UINT32 DataSize);

// Drops the oldest node with its data; an empty queue is left alone. EFI_INVALID_PARAMETER for NULL, else the
// two release statuses ORed.
EFI_STATUS QueueRemove(QUEUE* pQueue);

// Drops every node and initialises the header. EFI_INVALID_PARAMETER for NULL, else all release statuses ORed.
EFI_STATUS QueueClear(QUEUE* pQueue);

// FALSE for NULL.
BOOLEAN QueueIsEmpty(const QUEUE* pQueue);

// Oldest node; NULL when the queue is empty or NULL.
QUEUE_NODE* QueueHead(const QUEUE* pQueue);

// Data of the oldest node; NULL for a NULL queue. The queue must not be empty.
void* QueueHeadData(const QUEUE* pQueue);
