/* Scans a file with libtavrik in C.
 *
 *     cc scan_file.c -o scan_file $(pkg-config --cflags --libs tavrik)
 *     ./scan_file setup.exe
 */
#include <stdio.h>
#include <tavrik/tavrik.h>

static int Fail(const tavrik_error *error) {
    fprintf(stderr, "scan_file: %s (%s)\n", error->text, tavrik_status_name(error->status));
    return 2;
}

int main(int argc, char **argv) {
    tavrik_module *module;
    tavrik_scanner *scanner;
    tavrik_report *report;
    tavrik_error error = {sizeof error, 0, ""};
    tavrik_settings settings = {sizeof settings, 0, 10.0, 0, NULL}; /* at most 10 seconds a file */
    tavrik_summary summary = {sizeof summary, 0, 0, 0, NULL, NULL, NULL, 0, 0, 0, 0};
    tavrik_input input;
    size_t i;

    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: scan_file FILE [MODULE]\n");
        return 2;
    }
    /* Without a path: the module that was installed with the library. */
    if (tavrik_module_open(argc == 3 ? argv[2] : NULL, &module, &error) != TAVRIK_OK)
        return Fail(&error);
    if (tavrik_scanner_open(module, &settings, &scanner, &error) != TAVRIK_OK)
        return Fail(&error);
    tavrik_module_close(module); /* the scanner keeps it */

    input = tavrik_input_path(argv[1]);
    if (tavrik_scan(scanner, &input, NULL, &report, &error) != TAVRIK_OK) {
        Fail(&error);
        if (report == NULL) /* else it holds what was found before */
            return 2;
    }
    tavrik_report_summary(report, &summary);
    for (i = 0; i < summary.detections; ++i) {
        tavrik_detection detection = {sizeof detection, 0, NULL, 0, 0, NULL};
        tavrik_report_detection(report, i, &detection);
        printf("%s: rule %u \"%s\", action %s\n", summary.name, (unsigned)detection.rule, detection.name,
               detection.action_name);
    }
    for (i = 0; i < summary.findings; ++i) {
        tavrik_finding finding = {sizeof finding, 0, 0, 0, 0, NULL};
        tavrik_report_finding(report, i, &finding);
        printf("%s: entry %u, %s at 0x%llx\n", summary.name, (unsigned)finding.entry, finding.kind_name,
               (unsigned long long)finding.offset);
    }
    printf("%s: %s, %zu detections, %zu findings\n", summary.name,
           summary.outcome == TAVRIK_NOT_PE ? "not a PE file" : "scanned", summary.detections, summary.findings);
    tavrik_report_free(report);
    tavrik_scanner_close(scanner);
    return summary.detections + summary.findings != 0;
}
