#pragma once

/// The objects that hold data: descriptors, presets, the catalogue and its entries, the options bag.

#include "com/Contract.h"

#include <ptzd/PTZNamedPreset.h>
#include <ptzd/PTZOption.h>
#include "com/Automation.h"

namespace ptzd::com {

/// A descriptor that is filled already.
ComPtr<::_PTZOption> NewOption(const ptzd::PTZOption& option);
ComPtr<::_PTZNamedPreset> NewNamedPreset(const ptzd::PTZNamedPreset& preset);

// What hosts create.
ComPtr<IUnknown> NewEmptyOption();
ComPtr<IUnknown> NewCatalogue();
ComPtr<IUnknown> NewPropertyBag();

}  // namespace ptzd::com
