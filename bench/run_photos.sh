#!/usr/bin/env bash
# scripts/bench.sh photos: the photo-library scan at scale, 100,000 photo records naming files on
# disk; the floor also stats every named file (see bench/scan_case.sh). Its last line:
#   photos: records=N items=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
PHOTOS=${PHOTOS_RECORDS:-100000}
exec "$(dirname "$0")/scan_case.sh" photos "$PHOTOS" --stat origin_file_path --unit items \
  --records -- --photos "$PHOTOS"
