// Collects what is to be reported of interfaces and hands it over as one bulk notification.
#pragma once

#include <array>

#include "platform/interface_manager.h"
#include "platform/linux/links/record.h"

namespace ot {

// A set of the attributes that can be registered.
using link_attributes = unsigned;
inline constexpr link_attributes link_attribute_state = 1;
inline constexpr link_attributes link_attribute_redundancy = 2;

// The bit of an attribute number, 0 for one that is not offered.
link_attributes link_attribute_bit(std::uint16_t number) noexcept;

// The attributes in which two records differ.
link_attributes link_difference(const link_record& before, const link_record& now) noexcept;

class link_batch {
 public:
  static constexpr std::size_t capacity = 256;

  // Adds an item with the given attributes of `link`; nothing happens without any, or when the
  // batch is full. Of a deleted interface the state is reported, without a value.
  void add_present(const link_record& link, link_attributes reported) noexcept;
  void add_deleted(const link_record& link, link_attributes reported) noexcept;

  [[nodiscard]] std::size_t room() const noexcept { return capacity - size_; }

  // Hands over what was collected, if anything, and empties the batch. The callback may look
  // interfaces up.
  void deliver(ifc_callback callback, evm* manager);

 private:
  struct entry {
    link_record link;
    std::array<ifc_attribute, 2> attributes;
  };

  // The next item, with its place for the link's values; null when the batch is full.
  entry* add(const link_record& link) noexcept;

  std::array<entry, capacity> entries_;
  std::array<ifc_item, capacity> items_;
  std::size_t size_ = 0;
};

}  // namespace ot
