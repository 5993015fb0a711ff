#!/usr/bin/env bash
# scripts/bench.sh contacts: the contacts scan at scale, 100,000 contacts with 3 to 10 labelled
# entries each (see bench/scan_case.sh for what is measured). Its last line:
#   contacts: contacts=N seconds=S floor_seconds=F ratio=R input_bytes=I peak_rss_bytes=M rss_ratio=Q
CONTACTS=${BENCH_CONTACTS:-100000}
exec "$(dirname "$0")/scan_case.sh" contacts "$CONTACTS" --unit contacts -- --contacts "$CONTACTS"
