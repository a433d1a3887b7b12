// TaggedList: the linked list behind every table of the library.  A node's tag says what its
// item is and so how it is released.  The caller holds the lock of the table that the list is.
#pragma once

#include <cstdint>

#include "base/service_lock.h"

namespace zvqrn {

enum ListTag : std::int32_t {
  TAG_JOB = 11,
  TAG_OUTGOING = 12,
  TAG_DISCOVERY_REQUEST = 21,
  TAG_DELIVERY = 51
};

struct ListNode {
  void* item;  // owned by the list; never null
  std::int32_t tag;
  ListNode* next;      // null at the tail
  ListNode* previous;  // null at the head
};

// All zero is an empty list.
struct TaggedList {
  ListNode* head;
  ListNode* tail;
};

// Puts an item behind the last one; gives its node.  Null, and the item still the caller's, when it
// is null or memory runs out.
ListNode* ListAppend(TaggedList* list, void* item, ListTag tag);

// Releases the item of a node of the list and frees the node; does nothing for any other node.
void ListRemove(TaggedList* list, const ListNode* node);

// The same for a node that is known to be in the list, without walking it.
void ListRemoveMember(TaggedList* list, ListNode* node);

// Takes a node that is in the list out of it; its item, which is not released, is the caller's.
void* ListTake(TaggedList* list, ListNode* node);

// Releases every item, from the first on; the list is then empty.
void ListFree(TaggedList* list);

// Frees the list under its lock, then destroys the lock.
void DestroyTable(TaggedList* list, ServiceLock* lock);

// Releases an item as its tag says; an unknown tag releases nothing.  Defined in
// src/service/release_item.cpp, the room that knows the records of every floor.
void ReleaseItem(void* item, std::int32_t tag);

}  // namespace zvqrn
