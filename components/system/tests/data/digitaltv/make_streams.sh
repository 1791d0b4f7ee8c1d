#!/usr/bin/env bash
# Makes the streams of this folder with other people's writers: ffmpeg's multiplexer, and the table generators of
# libdvbpsi. Their bytes are kept, since other versions write others. Needs ffmpeg, gcc, libdvbpsi-dev.
set -euo pipefail
cd "$(dirname "$0")"
ffmpeg -v error -y -f lavfi -i testsrc=s=96x64:r=5:d=1 -f lavfi -i sine=f=440:d=1 -f lavfi -i sine=f=660:d=1 \
  -map 0 -map 1 -map 2 -map 0 -map 1 -c:v mpeg2video -b:v 20k -c:a:0 mp2 -c:a:1 ac3 -c:a:2 mp2 -b:a 32k -ar 32000 \
  -metadata:s:a:0 language=fra -metadata:s:a:1 language=eng -metadata:s:a:2 language=deu \
  -program title=Un:program_num=11:st=0:st=1:st=2 -program title=Zweite:program_num=12:st=3:st=4 \
  -metadata service_provider=Maker -mpegts_transport_stream_id 7 -mpegts_original_network_id 8442 -mpegts_flags system_b -muxrate 200k \
  -fflags +bitexact -flags:v +bitexact -flags:a +bitexact -f mpegts ffmpeg.ts
gcc -Wall -Wextra -O1 make_dvbpsi.c -o /tmp/make_dvbpsi.$$ -ldvbpsi
/tmp/make_dvbpsi.$$ > dvbpsi.ts
rm /tmp/make_dvbpsi.$$
