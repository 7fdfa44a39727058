/// Rows of data selected from an XML document.
#pragma once

#include "platform/types.h"

namespace vk::tq {

/// One row: element name to element text. A copy shares the map, which belongs to the RowArray that
/// holds the row.
struct RowData {
  CMapStringToString* m_pColumns = nullptr;
};

/// A growing array of rows, which owns their maps: it deletes each with itself. Rows that were
/// taken from it must not outlive it.
class TQ_EXPORT RowArray {
 public:
  RowArray() = default;
  RowArray(const RowArray&) = delete;
  RowArray& operator=(const RowArray&) = delete;
  ~RowArray();

  CArray<RowData> m_aRows;
};

}  // namespace vk::tq
