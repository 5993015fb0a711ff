// The WhatsApp (iOS) generator: N conversations holding M messages in total, written as the
// engine's WhatsApp export (one callback 61 listing the conversations, each naming its own
// message file).
//
// Realistic shape: texts of 0 to 500 bytes in several scripts, one conversation in five a group
// with 2 to 8 members (senders named by address, a group-created notice first), one message in
// ten a picture, voice note or document whose file exists (a pool of small files that messages
// share), one in fifty deleted, one in two hundred a notice. Deterministic from the seed.
#pragma once

#include "bench/generator/recording_writer.h"
#include "bench/generator/sms_generator.h"

namespace dataparser::bench {

using WhatsappOptions = SmsOptions;

GeneratedCounts generateWhatsapp(RecordingWriter& recording, const WhatsappOptions& options);

}  // namespace dataparser::bench
