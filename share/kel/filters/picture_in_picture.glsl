/*
Filter: picture_in_picture
Description: Draws a second image over a part of the frame
Parameter: texture picture
Parameter: vec4 place; default 0.62, 0.08, 0.3, 0.3; min 0; max 1 // left, top, width, height; 1 is the frame's width or height
Parameter: float opacity; default 1; min 0; max 1
*/
void picture_in_picture(sampler2D picture, vec4 place, float opacity) {
    vec2 inside = (kel_position - place.xy) / place.zw;
    vec4 color = texture2D(picture, inside);
    float share = all(lessThan(abs(inside - 0.5), vec2(0.5))) ? opacity * color.a : 0.0;
    gl_FragColor = vec4(mix(gl_FragColor.rgb, color.rgb, share), max(gl_FragColor.a, share));
}
