// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Whether an error ends the process, as it does at first.
void halt_on_error(bool halt);
