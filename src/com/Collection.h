#pragma once

#include <optional>
#include <string>
#include <vector>

#include "com/Object.h"

namespace ptzd::com {

/// The items of a collection, in order. Collections and their enumerators share them, so that each may
/// outlive the others.
struct CollectionItem {
  ComPtr<IDispatch> Value;
  std::optional<std::wstring> Key{};
};
using CollectionItems = std::shared_ptr<const std::vector<CollectionItem>>;

/// A collection that a host only reads: `Item` (the default member) by position from 1 or by key, `Count`,
/// and an enumerator. `Item` raises 5 (invalid procedure call) for what is not there.
ComPtr<IDispatch> NewCollection(CollectionItems items);

/// An enumerator that begins at the first item.
ComPtr<IUnknown> NewEnumerator(CollectionItems items);

}  // namespace ptzd::com
