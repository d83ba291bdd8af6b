#ifdef GL_FRAGMENT_PRECISION_HIGH
precision highp float;
#else
precision mediump float;
#endif
uniform sampler2D kel_frame;
uniform vec2 kel_pixel;
varying vec2 kel_position;
vec2 kel_at;
float kel_luma(vec3 color) { return dot(color, vec3(0.299, 0.587, 0.114)); }
