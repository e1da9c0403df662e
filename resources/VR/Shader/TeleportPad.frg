#version 410 core

// The vertex colours are premultiplied already.
in vec4 padColor;

out vec4 fragColor;

void main() {
    fragColor = padColor;
}
