// product_settings.h: settings that all processes of the product share.
//
// Lines ITEM=TEXT in the file that ZOR0_PRODUCT_SPEC names, else in /var/lib/zord410/product.spec
// if that exists, else in the memory of the process.
//
// Any thread may call any function here. None throws.
#ifndef SUITE_PRODUCT_SETTINGS_H
#define SUITE_PRODUCT_SETTINGS_H

constexpr int ZOR0_ITEM_PRODUCT_NAME = 3;

// The text of a setting, or null when it has none; the product name is "ZORA" by default.
// Valid until the calling thread asks for the same item again.
const char* ZOR0_QueryProductSpec(int item);

// Stores the text of a setting. Readers in any process see the old file or the new one, never half
// of one, and updates of several processes do not undo each other. Returns 1, or 0 when the text
// holds a line end or the file cannot be written.
int ZOR0_UpdateProductSpec(int item, const char* text);

#endif  // SUITE_PRODUCT_SETTINGS_H
