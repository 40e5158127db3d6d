#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes still.jpg and clip.mp4 anew. Needs the programs ffmpeg and exiv2; README.md tells what comes out.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A lake at sunset, drawn by formula: sky with a sinking sun, two ridges, water that mirrors the sky in ripples. The
# view drifts slowly to the right. In each channel "h" is the height in the picture, from 0 at the top to 1.
draw() { # width height frames-per-second seconds
    local h='(Y/H)'
    local far='(0.47+0.045*sin(X/W*5+T*0.06)+0.02*sin(X/W*17+1+T*0.2))'
    local near='(0.58+0.05*sin(X/W*3.1+2+T*0.1)+0.012*sin(X/W*29+T*0.9))'
    local sun="hypot((X/W-0.63)*W/H\,$h-0.27-T*0.008)"
    local ripple='(sin(Y*Y/H*0.55-T*9+3*sin(X/W*9+T))*sin(X/W*23+Y/H*40+T*2))'
    local mirror="(1.16-$h+0.02*$ripple)"
    local glint="(exp(-pow((X/W-0.63)*7\,2))*max(0\,$ripple))"
    channel() { # sky-top sky-bottom sun far-ridge near-ridge glint
        local sky="($1+($2-$1)*min(1\,$h/0.5)+$3*exp(-$sun*9)+$3*lt($sun\,0.055))"
        local water="(0.72*($1+($2-$1)*min(1\,$mirror/0.5))+10*$ripple+$6*$glint)"
        echo "clip(if(lt($h\,$far)\,$sky\,if(lt($h\,$near)\,$4+18*($h-$far)/0.1\,if(lt($h\,0.64)\,$5\,$water)))\,0\,255)"
    }
    echo "nullsrc=s=$1x$2:r=$3:d=$4,format=gbrp,geq=r='$(channel 52 246 120 92 34 120)':g='$(channel 78 164 92 70 36 84)':b='$(channel 128 112 40 96 44 30)',noise=alls=7:allf=t:all_seed=11"
}

quiet=(ffmpeg -hide_banner -loglevel error -nostdin -y)
exact=(-fflags +bitexact -flags:v +bitexact -flags:a +bitexact -map_metadata -1)

# The clip: as long as phones record around a still; the tone's two voices stand for a microphone.
"${quiet[@]}" -f lavfi -i "$(draw 480 360 30 2.5)" \
    -f lavfi -i "aevalsrc='0.12*sin(2*PI*220*t)*(1+sin(2*PI*3*t))|0.12*sin(2*PI*330*t)*(1+sin(2*PI*2*t))':s=44100:d=2.5" \
    "${exact[@]}" -c:v libx264 -profile:v high -pix_fmt yuv420p -threads 1 -b:v 640k -maxrate 900k -bufsize 900k -g 30 \
    -c:a aac -b:a 64k -brand mp42 clip.mp4

# The still: the moment 1.5 s into the clip, at a higher resolution, and its thumbnail.
"${quiet[@]}" -f lavfi -i "$(draw 640 480 2 2)" "${exact[@]}" -vf "select='eq(n,3)',format=yuvj420p" -frames:v 1 \
    -q:v 5 "$work/picture.jpg"
"${quiet[@]}" -i "$work/picture.jpg" "${exact[@]}" -vf scale=160:120 -q:v 8 "$work/still-thumb.jpg"

# Cameras put Exif right behind the start-of-image marker: the encoder's 18-byte JFIF segment leaves.
{ head -c 2 "$work/picture.jpg"; tail -c +21 "$work/picture.jpg"; } > "$work/still.jpg"
exiv2 -M"set Exif.Image.Make Ascii Heron Optical" \
    -M"set Exif.Image.Model Ascii Heron P3" \
    -M"set Exif.Image.Orientation Short 1" \
    -M"set Exif.Image.XResolution Rational 72/1" \
    -M"set Exif.Image.YResolution Rational 72/1" \
    -M"set Exif.Image.ResolutionUnit Short 2" \
    -M"set Exif.Image.Software Ascii P3 1.4.2" \
    -M"set Exif.Image.DateTime Ascii 2024:08:17 20:41:09" \
    -M"set Exif.Image.YCbCrPositioning Short 1" \
    -M"set Exif.Photo.ExposureTime Rational 1/250" \
    -M"set Exif.Photo.FNumber Rational 18/10" \
    -M"set Exif.Photo.ISOSpeedRatings Short 64" \
    -M"set Exif.Photo.ExifVersion Undefined 48 50 51 50" \
    -M"set Exif.Photo.DateTimeOriginal Ascii 2024:08:17 20:41:09" \
    -M"set Exif.Photo.DateTimeDigitized Ascii 2024:08:17 20:41:09" \
    -M"set Exif.Photo.SubSecTimeOriginal Ascii 417" \
    -M"set Exif.Photo.Flash Short 16" \
    -M"set Exif.Photo.FocalLength Rational 54/10" \
    -M"set Exif.Photo.ColorSpace Short 1" \
    -M"set Exif.Photo.PixelXDimension Long 640" \
    -M"set Exif.Photo.PixelYDimension Long 480" \
    -M"set Exif.GPSInfo.GPSLatitudeRef Ascii N" \
    -M"set Exif.GPSInfo.GPSLatitude Rational 60/1 30/1 0/1" \
    -M"set Exif.GPSInfo.GPSLongitudeRef Ascii E" \
    -M"set Exif.GPSInfo.GPSLongitude Rational 22/1 10/1 0/1" \
    "$work/still.jpg"
exiv2 -it "$work/still.jpg"
cp "$work/still.jpg" still.jpg
