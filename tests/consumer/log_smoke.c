/*
 * For the library built with VANTOR_ANDROID_LOG: one refused and one accepted vantor_init, so
 * that liblog prints an error line and an info line under the tag "vantor".
 */
#include <stddef.h>

#include "vantor.h"

int main(void) {
    if (vantor_init(100, 64, VTR_SCENARIO_CAPTURE) != NULL) /* width not a multiple of 16 */
        return 1;
    void* h = vantor_init(224, 97, VTR_SCENARIO_CAPTURE);
    return h != NULL && vantor_deinit(h) == 0 ? 0 : 1;
}
