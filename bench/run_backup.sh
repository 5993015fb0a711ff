#!/usr/bin/env bash
# scripts/bench.sh backup: a device backup's messages at scale, a backup whose sms.db holds
# 1,000,000 messages in 10,000 conversations; the floor is one SQLite pass over the same joined
# message rows (see bench/scan_case.sh). Its last line:
#   backup: messages=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
MESSAGES=${BACKUP_MESSAGES:-1000000}
exec "$(dirname "$0")/scan_case.sh" backup "$MESSAGES" --backup -- --messages "$MESSAGES" \
  --conversations "${BACKUP_CONVERSATIONS:-10000}"
