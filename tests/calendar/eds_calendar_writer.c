/* Adds every VEVENT of an iCalendar file to Evolution Data Server's built-in personal calendar
 * ("Personal", on this computer) and exits: 0 when all were added, 1 with a reason otherwise.
 * The session bus and the XDG folders come from the environment. */
#include <libecal/libecal.h>

#include <stdio.h>

static int fail(const char* what, GError* error)
{
    fprintf(stderr, "eds_calendar_writer: %s: %s\n", what, error ? error->message : "failed");
    return 1;
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: eds_calendar_writer FILE.ics\n");
        return 2;
    }
    GError* error = NULL;
    gchar* text = NULL;
    if (!g_file_get_contents(argv[1], &text, NULL, &error))
        return fail("read", error);
    ESourceRegistry* registry = e_source_registry_new_sync(NULL, &error);
    if (!registry)
        return fail("registry", error);
    ESource* source = e_source_registry_ref_builtin_calendar(registry);
    EClient* client = e_cal_client_connect_sync(source, E_CAL_CLIENT_SOURCE_TYPE_EVENTS, (guint32) -1, NULL, &error);
    if (!client)
        return fail("connect", error);
    ICalComponent* calendar = i_cal_component_new_from_string(text);
    if (!calendar)
        return fail("parse", NULL);
    int added = 0;
    for (ICalComponent* event = i_cal_component_get_first_component(calendar, I_CAL_VEVENT_COMPONENT); event;
         event = i_cal_component_get_next_component(calendar, I_CAL_VEVENT_COMPONENT)) {
        gchar* uid = NULL;
        if (!e_cal_client_create_object_sync(E_CAL_CLIENT(client), event, E_CAL_OPERATION_FLAG_NONE, &uid, NULL,
                                             &error))
            return fail("create", error);
        g_free(uid);
        g_object_unref(event);
        ++added;
    }
    printf("%d\n", added);
    g_object_unref(calendar);
    g_object_unref(client);
    g_object_unref(source);
    g_object_unref(registry);
    g_free(text);
    return 0;
}
