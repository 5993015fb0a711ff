#!/usr/bin/env bash
# scripts/bench.sh wechat: the WeChat scan at scale, 1,000,000 messages in 5,000 conversations
# of two accounts (see bench/scan_case.sh for what is measured). Its last line:
#   wechat: messages=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
MESSAGES=${WECHAT_MESSAGES:-1000000}
exec "$(dirname "$0")/scan_case.sh" wechat "$MESSAGES" --stat media_backup,thumb_backup -- --messages "$MESSAGES" \
  --conversations "${WECHAT_CONVERSATIONS:-5000}"
