#pragma once

// Marks what velm_core.so and libkdi.so offer to others; everything else stays hidden.
#define VELM_API __attribute__((visibility("default")))
