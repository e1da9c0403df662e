#version 410 core

uniform vec4 color;

in float shade;

out vec4 fragColor;

void main() {
    fragColor = vec4(color.rgb * shade, color.a);
}
