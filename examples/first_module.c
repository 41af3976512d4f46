/* SPDX-License-Identifier: MIT */
/*
 * A first module: registers, reads the hardware model, lists the users, changes
 * the name of the Wi-Fi network, and unregisters.
 *
 *     first_module [NETWORK-NAME]
 *
 * Build it outside this tree with: cc first_module.c $(pkg-config --cflags --libs zan)
 */
#include <stdio.h>
#include <zan.h>

/* The name of the module, at most 31 characters. */
#define MODULE "first_module"
#define SSID_PATH "/InternetGatewayDevice/LANDevice:1/WLANConfiguration:1/SSID"

/* Every request returns 1, or a negative code. */
static int report(const char *what, int result) {
    if (result < 0)
        fprintf(stderr, "%s: %s failed with %d\n", MODULE, what, result);
    return result;
}

static int print_model(void) {
    char model[64];
    char name[64];
    if (report("reading the model", cfg_getstr(model, sizeof model, "/runtime/hw/model")) < 0 ||
        report("reading its name", cfg_getstr(name, sizeof name, "/runtime/hw/name")) < 0)
        return -1;
    printf("hardware model: %s (%s)\n", model, name);
    return 0;
}

static void print_users(void) {
    const int count = cfg_getcount("/sys/user");
    printf("users: %d\n", count);
    /* The instance number follows a colon.  An instance keeps its number when
     * others are deleted, so there may be gaps. */
    for (int number = 1, seen = 0; seen < count && number < 100; number++) {
        char name[64];
        if (cfg_getstr(name, sizeof name, "/sys/user:%d/name", number) < 0)
            continue;
        printf("  user %d: %s\n", number, name);
        seen++;
    }
}

static int rename_network(const char *name) {
    char before[64];
    char after[64];
    if (report("reading the network name", cfg_getstr(before, sizeof before, SSID_PATH)) < 0 ||
        report("writing the network name", cfg_setstr(name, SSID_PATH)) < 0 ||
        report("reading it back", cfg_getstr(after, sizeof after, SSID_PATH)) < 0)
        return -1;
    printf("Wi-Fi network: %s -> %s\n", before, after);
    return 0;
}

int main(int argc, char **argv) {
    const char *network = argc > 1 ? argv[1] : "Attic";

    /* Register before any request.  Instance 0 is the first process of a module; a
     * second process of the same module would be 1. */
    if (report("registering", zan_register(MODULE, 0)) < 0)
        return 1;

    int failed = print_model() < 0;
    print_users();
    failed |= rename_network(network) < 0;

    /* Unregister also after a failure, because queues outlive their process. */
    return report("unregistering", zan_unregister(MODULE, 0)) < 0 || failed;
}
