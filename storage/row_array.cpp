#include "storage/row_array.h"

namespace vk::tq {

RowArray::~RowArray() {
  for (const RowData& row : m_aRows) delete row.m_pColumns;
}

}  // namespace vk::tq
