// Layout of the production .MDX index file: one file per table holding up to 47 index tags,
// each a B-tree of fixed-length character keys. Every multi-byte integer is little-endian.
//
// The file is made of 512-byte pages; every pointer in it is a page number. Pages 0..3 hold
// the file header and the tag table; after them the file is made of blocks of two pages
// (1024 bytes): one block per tag header and one per B-tree node.
//
// File header (page 0):
//   OFFSET | SIZE | DESCRIPTION
//   0      | 1    | version, 2
//   1      | 3    | creation date: year - 1900, month, day
//   4      | 16   | data file name without extension, upper case, NUL-filled
//   20     | 2    | uint16 pages per block, 2
//   22     | 2    | uint16 block size in bytes, 1024
//   24     | 1    | production index flag, 1
//   25     | 1    | tag table slots, 48 (slot 0 included)
//   26     | 1    | bytes per tag table slot, 32
//   27     | 1    | reserved, 0
//   28     | 2    | uint16 tags in use
//   30     | 1    | tags in use + 1
//   31     | 1    | 0x1B
//   32     | 4    | uint32 pages in the file (= next page to allocate)
//   36     | 4    | uint32 page of the first free block, 0 = none
//   40     | 4    | uint32 blocks available, 0
//   44     | 3    | date of last update: year - 1900, month, day
//   47     | 465  | reserved, 0
//
// Tag table (pages 1..3, from offset 512): 48 slots of 32 bytes. Slot 0 is zero but for its
// byte 17, which is 1 (the root of the tag-name tree is slot 1). Slot i (1..47) at 512 + 32 i:
//   OFFSET | SIZE | DESCRIPTION
//   0      | 4    | uint32 page of the tag header block
//   4      | 11   | tag name, upper case, NUL-filled
//   15     | 1    | key format, 0x10
//   16     | 1    | tag-name tree: slot of the left child (lower names), 0 = none
//   17     | 1    | tag-name tree: slot of the right child (equal or higher names), 0 = none
//   18     | 1    | tag-name tree: slot of the parent, 0 for the root
//   19     | 1    | 0x02
//   20     | 1    | key type 'C'
//   21     | 11   | reserved, 0
// The name tree is built by inserting the tags in slot order into an unbalanced binary search
// tree (names compared as 11 NUL-padded bytes), slot 1 being the root.
//
// Tag header (one block):
//   OFFSET | SIZE | DESCRIPTION
//   0      | 4    | uint32 page of the root node
//   4      | 4    | uint32 pages taken by the tag's nodes
//   8      | 1    | key format: 0x10, + 0x08 descending, + 0x40 unique
//   9      | 1    | key type 'C'
//   10     | 1    | reserved, 0
//   11     | 1    | 0x1B
//   12     | 2    | uint16 key length k (1..100)
//   14     | 2    | uint16 most keys per node = (block size - 12) / item length
//   16     | 2    | uint16 secondary key type, 0 (1 for date keys)
//   18     | 2    | uint16 item length = k + 4 rounded up to a multiple of 4
//   20     | 1    | change counter, 1 for a freshly built tag
//   21     | 1    | reserved, 0
//   22     | 2    | unique flag: byte 22 = 0, byte 23 = 0x40 when unique
//   24     | 221  | key expression text, NUL-terminated
//   245    | 1    | 1 when the tag has a FOR filter, 0
//   246    | 1    | 1 when the tag holds keys
//   247    | 1    | reserved, 0
//   248    | 4    | uint32 page of the left-most leaf
//   252    | 4    | uint32 page of the right-most leaf
//   256    | 1    | reserved, 0
//   257    | 3    | tag creation date: year - 1900, month, day
//   260    | 220  | reserved, 0
//   480    | 1    | 0
//   481    | 543  | reserved, 0 (a filter expression would start at 762)
//
// B-tree node (one block):
//   OFFSET      | SIZE     | DESCRIPTION
//   0           | 4        | uint32 number of keys n
//   4           | 4        | uint32 0 (free-list link in a free block)
//   8           | n x item | entries: uint32 pointer, then the k key bytes, zero-padded to item
//   8 + n x item| 4        | uint32 trailing pointer: 0 in a leaf, the last child in a branch
//   ...         |          | zero to the end of the block
// In a leaf each pointer is a 1-based record number. In a branch entry i points at child i and
// carries the last key (in index order) of child i's subtree; the trailing pointer is child n.
// Entries run in index order (descending for a descending tag); equal keys by record number.
#pragma once

#include <cstdint>

namespace dbase::mdx {

constexpr int kPageSize = 512;
constexpr int kPagesPerBlock = 2;
constexpr int kBlockSize = kPageSize * kPagesPerBlock;
constexpr int kHeaderPages = 4;
constexpr int kTagSlots = 48;
constexpr int kSlotSize = 32;
constexpr int kMaxTags = kTagSlots - 1;
constexpr int kNodeOverhead = 12;  // count, link, trailing pointer

// File header.
constexpr int kVersionOffset = 0;
constexpr int kCreatedOffset = 1;
constexpr int kDataNameOffset = 4;
constexpr int kDataNameSize = 16;
constexpr int kPagesPerBlockOffset = 20;
constexpr int kBlockSizeOffset = 22;
constexpr int kProductionOffset = 24;
constexpr int kSlotCountOffset = 25;
constexpr int kSlotSizeOffset = 26;
constexpr int kTagsInUseOffset = 28;
constexpr int kTagsPlusOneOffset = 30;
constexpr int kHeaderByte31Offset = 31;
constexpr int kPageCountOffset = 32;
constexpr int kFirstFreeOffset = 36;
constexpr int kBlocksAvailOffset = 40;
constexpr int kUpdatedOffset = 44;
constexpr unsigned char kVersion = 2;
constexpr unsigned char kByte31 = 0x1B;

// Tag table slot.
constexpr int kTagTableOffset = kPageSize;
constexpr int kSlotHeaderPage = 0;
constexpr int kSlotName = 4;
constexpr int kSlotNameSize = 11;
constexpr int kSlotKeyFormat = 15;
constexpr int kSlotLeft = 16;
constexpr int kSlotRight = 17;
constexpr int kSlotParent = 18;
constexpr int kSlotByte19 = 19;
constexpr int kSlotKeyType = 20;
constexpr unsigned char kSlotKeyFormatValue = 0x10;
constexpr unsigned char kSlotByte19Value = 0x02;

// Tag header.
constexpr int kTagRootPage = 0;
constexpr int kTagPagesUsed = 4;
constexpr int kTagKeyFormat = 8;
constexpr int kTagKeyType = 9;
constexpr int kTagByte11 = 11;
constexpr int kTagKeyLength = 12;
constexpr int kTagMaxKeys = 14;
constexpr int kTagSecondaryType = 16;
constexpr int kTagItemLength = 18;
constexpr int kTagCounter = 20;
constexpr int kTagUniqueFlag = 22;
constexpr int kTagExpression = 24;
constexpr int kTagExpressionSize = 221;
constexpr int kTagHasFilter = 245;
constexpr int kTagHasKeys = 246;
constexpr int kTagFirstLeaf = 248;
constexpr int kTagLastLeaf = 252;
constexpr int kTagCreated = 257;
constexpr unsigned char kFormatBase = 0x10;
constexpr unsigned char kFormatDescending = 0x08;
constexpr unsigned char kFormatUnique = 0x40;
constexpr unsigned char kUniqueByte23 = 0x40;

// Node.
constexpr int kNodeCount = 0;
constexpr int kNodeLink = 4;
constexpr int kNodeEntries = 8;

inline int ItemLength(int keyLength) { return (keyLength + 4 + 3) / 4 * 4; }
inline int MaxKeys(int keyLength) { return (kBlockSize - kNodeOverhead) / ItemLength(keyLength); }

}  // namespace dbase::mdx
