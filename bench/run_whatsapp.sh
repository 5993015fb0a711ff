#!/usr/bin/env bash
# scripts/bench.sh whatsapp: the WhatsApp (iOS) scan at scale, 1,000,000 messages in 10,000
# conversations (see bench/scan_case.sh for what is measured). Its last line:
#   whatsapp: messages=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
MESSAGES=${WHATSAPP_MESSAGES:-1000000}
exec "$(dirname "$0")/scan_case.sh" whatsapp "$MESSAGES" --stat media_backup -- --messages "$MESSAGES" \
  --conversations "${WHATSAPP_CONVERSATIONS:-10000}"
