// What the module exports to the host and to the suite's other modules; the
// rest of the module is hidden.
#pragma once

#ifndef ZEFT_LM_EXPORT
#define ZEFT_LM_EXPORT __attribute__((visibility("default")))
#endif
