#include "Library/VornElogBaseLib/Queue.h"

#include "Library/VornElogBaseLib/ContainerTrace.h"

void QueueInit(QUEUE* pQueue) {
    if (!IsQueueGiven(pQueue)) {
        return;
    }
    *pQueue = {};
}

EFI_STATUS QueueAdd(QUEUE* pQueue, const void* pData, UINT32 DataSize) {
    if (pQueue == nullptr || pData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL on entry, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    UINT8* pCopy = nullptr;
    EFI_STATUS Status = AllocateRuntimeData(DataSize, &pCopy);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory, aborting...\n", Status);
        return Status;
    }
    CopyMem(pCopy, pData, DataSize);

    // Meant: when no node can be had, the copy stays allocated.
    if (pQueue->pHead != nullptr) {
        Status = AllocateRuntimeData(sizeof(QUEUE_NODE), &pQueue->pTail->pNext);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR,
                  "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for next entry, aborting...\n",
                  Status);
            return Status;
        }
        pQueue->pTail = pQueue->pTail->pNext;
    } else {
        Status = AllocateRuntimeData(sizeof(QUEUE_NODE), &pQueue->pHead);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR,
                  "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for queue node (empty queue), "
                  "aborting...\n",
                  Status);
            return Status;
        }
        pQueue->pTail = pQueue->pHead;
    }
    *pQueue->pTail = {pCopy, nullptr};
    pQueue->NumElements++;
    Trace(ContainerDebugLevel(), "%a: %d elements\n", pQueue->NumElements);
    return EFI_SUCCESS;
}

EFI_STATUS QueueRemove(QUEUE* pQueue) {
    if (!IsQueueGiven(pQueue)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pQueue->NumElements == 0) {
        return EFI_SUCCESS;
    }
    QUEUE_NODE* pNode = pQueue->pHead;
    pQueue->NumElements--;
    if (pQueue->NumElements == 0) {
        pQueue->pTail = nullptr;
        pQueue->pHead = nullptr;
    } else {
        pQueue->pHead = pNode->pNext;
    }
    Trace(ContainerDebugLevel(), "%a: %d elements left\n", pQueue->NumElements);
    const EFI_STATUS DataStatus = FreeRuntimeData(pNode->pData);
    return DataStatus | FreeRuntimeData(pNode);
}

EFI_STATUS QueueClear(QUEUE* pQueue) {
    if (!IsQueueGiven(pQueue)) {
        return EFI_INVALID_PARAMETER;
    }
    Trace(ContainerDebugLevel(), "%a: releasing %d elements\n", pQueue->NumElements);
    // Meant: any failed release leaves the error bit set.
    EFI_STATUS Status = EFI_SUCCESS;
    while (pQueue->NumElements != 0) {
        QUEUE_NODE* pNode = pQueue->pHead;
        pQueue->pHead = pNode->pNext;
        Status |= FreeRuntimeData(pNode->pData);
        Status |= FreeRuntimeData(pNode);
        pQueue->NumElements--;
    }
    QueueInit(pQueue);
    return Status;
}

BOOLEAN QueueIsEmpty(const QUEUE* pQueue) {
    return IsQueueGiven(pQueue) && pQueue->pHead == nullptr && pQueue->pTail == nullptr ? TRUE : FALSE;
}

QUEUE_NODE* QueueHead(const QUEUE* pQueue) {
    return IsQueueGiven(pQueue) ? pQueue->pHead : nullptr;
}

void* QueueHeadData(const QUEUE* pQueue) {
    return IsQueueGiven(pQueue) ? pQueue->pHead->pData : nullptr;
}
