// Bulk notifications. The items of one bulk stand in the order in which things happened, so a
// rename is its old name's deletion followed by its new name's creation.
#include "platform/linux/links/batch.h"

#include <iterator>

namespace ot {
namespace {

struct attribute_row {
  std::uint16_t number;
  link_attributes bit;
  std::uint32_t link_record::*value;
};

constexpr attribute_row attribute_rows[] = {
    {ifc_attr_state, link_attribute_state, &link_record::state},
    {ifc_attr_redundancy, link_attribute_redundancy, &link_record::redundancy},
};

}  // namespace

link_attributes link_attribute_bit(std::uint16_t number) noexcept {
  for (const attribute_row& row : attribute_rows) {
    if (row.number == number) {
      return row.bit;
    }
  }
  return 0;
}

link_attributes link_difference(const link_record& before, const link_record& now) noexcept {
  link_attributes different = 0;
  for (const attribute_row& row : attribute_rows) {
    different |= before.*row.value == now.*row.value ? 0 : row.bit;
  }
  return different;
}

link_batch::entry* link_batch::add(const link_record& link) noexcept {
  if (size_ == capacity) {
    return nullptr;
  }
  entry& added = entries_[size_];
  added.link = link;
  items_[size_] = {link.ifindex, 1, added.link.name.c_str(), {}};
  ++size_;
  return &added;
}

void link_batch::add_present(const link_record& link, link_attributes reported) noexcept {
  entry* added = reported == 0 ? nullptr : add(link);
  if (added == nullptr) {
    return;
  }
  std::size_t count = 0;
  for (const attribute_row& row : attribute_rows) {
    if ((reported & row.bit) != 0) {
      added->attributes[count++] = {row.number, &(added->link.*row.value)};
    }
  }
  items_[size_ - 1].attributes = std::span(added->attributes).first(count);
}

void link_batch::add_deleted(const link_record& link, link_attributes reported) noexcept {
  entry* added = reported == 0 ? nullptr : add(link);
  if (added == nullptr) {
    return;
  }
  added->attributes[0] = {ifc_attr_state, nullptr};
  items_[size_ - 1].exists = 0;
  items_[size_ - 1].attributes = std::span(added->attributes).first(1);
}

void link_batch::deliver(ifc_callback callback, evm* manager) {
  if (size_ == 0) {
    return;
  }
  const ifc_bulk_notification bulk{ifc_bulk_code, std::span(items_).first(size_)};
  callback(manager, &bulk);
  size_ = 0;
}

}  // namespace ot
