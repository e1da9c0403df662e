#version 410 core

// One flat colour for everything the program draws.
uniform vec4 color;

out vec4 fragColor;

void main() {
    fragColor = color;
}
