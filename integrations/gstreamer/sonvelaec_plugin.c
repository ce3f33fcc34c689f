/* The plug-in libgstsonvelaec: registers the sonvelaec element. */
#include <gst/gst.h>

#include "sonvelaec_element.h"

static gboolean plugin_init(GstPlugin *plugin) { return GST_ELEMENT_REGISTER(sonvelaec, plugin); }

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, sonvelaec,
                  "Acoustic echo cancellation of a microphone given the loudspeaker reference",
                  plugin_init, SONVEL_VERSION, "Proprietary", "Sonvel AEC",
                  "https://sonvel.invalid/")
